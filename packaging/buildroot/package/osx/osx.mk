################################################################################
#
# osx
#
################################################################################

OSX_VERSION = 1.1.0
# The tree that this folder is a part of. For a release, its archive: OSX_SITE
# is where it lies, there is no OSX_SITE_METHOD, and osx.hash has its sum.
OSX_SITE = $(BR2_EXTERNAL_OSX_PATH)/../..
OSX_SITE_METHOD = local
OSX_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
OSX_LICENSE = MIT
OSX_LICENSE_FILES = LICENSE
OSX_INSTALL_STAGING = YES
OSX_DEPENDENCIES = host-pkgconf ace
OSX_CONF_OPTS = \
	-DOSX_BUILD_TESTS=OFF \
	-DOSX_BUILD_EXAMPLES=OFF \
	-DOSX_BUILD_MAN=OFF \
	-DOSX_CCACHE=OFF \
	-DOSX_PROC_LAYOUT=current

$(eval $(cmake-package))
