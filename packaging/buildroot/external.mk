include $(sort $(wildcard $(BR2_EXTERNAL_OSX_PATH)/package/*/*.mk))
