// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Variants, identifiers, byte buffers, translation tables and system information.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "ace/Date_Time.h"
#include "ace/SString.h"
#include "memory/Service.h"
#include "sysinfo/DynamicSysInfo.h"
#include "types/Blob.h"
#include "types/FlexVar.h"
#include "types/ObjectID.h"
#include "types/ObjectIDMap.h"

namespace memory {

namespace {

class Variants : public Service {
public:
    const char* name() const override { return "variants"; }
    bool start() override {
        FlexVar lHeld(mText);
        const FlexVar lValues[] = {FlexVar(mText), FlexVar(mWide),      FlexVar(mDate),
                                   FlexVar(mBlob), FlexVar(ObjectID()), lHeld};
        bool lAll = true;
        for (const FlexVar& lValue : lValues) {
            lAll = lAll && lValue.getType() != FlexVar::FlexVar_NoType;
            use(lValue);
        }
        errno = 0;
        lHeld += FlexVar(mText);
        lHeld.setWString(mWide);
        lHeld.setBlob(mBlob);
        lHeld.setValueFromString(mText);
        lHeld.setDateTime(mDate);
        return lAll && errno != ENOMEM;
    }
    bool works() override {
        FlexVar lSum(mText);
        lSum += FlexVar(mText);
        FlexVar lCopy(lSum);
        lCopy.setWString(mWide);
        return lSum.getCString() == ACE_CString("textstextstextstexts") &&
               lCopy.getWString() == mWide && lSum.getValueAsString().length() == 20;
    }
    void stop() override {}

private:
    static void use(const FlexVar& aValue) {
        ACE_CString lNarrow;
        ACE_WString lWide;
        aValue.getValueAsString(lNarrow);
        aValue.getValueAsString(lWide);
        aValue.getTypeName();
        aValue.hash();
        FlexVar lCopy(aValue);
        lCopy = aValue + aValue;
        lCopy.setValueFromString(lNarrow);
        lCopy.setValueFromString(lWide);
    }
    const ACE_CString mText{"textstexts"};
    const ACE_WString& mWide = FlexVar::mWStrBoolTrue;
    const ACE_Date_Time mDate{1, 2, 2003};
    unsigned char mBytes[8] = "1234567";
    const Blob mBlob{mBytes, 8, false};
};

class Identifiers : public Service {
public:
    const char* name() const override { return "identifiers"; }
    bool start() override {
        mOne = ObjectID();
        mOne.generateObjectID();
        ObjectID lOther;
        lOther.setFromString(mOne.toString());
        return !mOne.isEmpty();
    }
    bool works() override {
        ObjectID lOther;
        lOther.setFromString(mOne.toString());
        ObjectID lNext;
        lNext.generateObjectID();
        return lOther == mOne && lNext != mOne && !lNext.isEmpty() &&
               mOne.toString().length() == 36;
    }
    void stop() override {}

private:
    ObjectID mOne;
};

class Translations : public Service {
public:
    const char* name() const override { return "translation table"; }
    const char* line() const override { return "ACE_Hash_Map_Manager_Ex"; }
    bool start() override {
        mTable.reset(new (std::nothrow) ObjectIDMap);
        if (mTable == nullptr) {
            return false;
        }
        errno = 0;
        bool lAll = true;
        for (unsigned char lNumber = 1; lNumber < 200; ++lNumber) {
            mTable->add(numbered(lNumber), numbered(static_cast<unsigned char>(lNumber + 1)));
            lAll = lAll && errno != ENOMEM;
        }
        return lAll;
    }
    bool works() override {
        mTable->add(numbered(3), numbered(4));
        ObjectID lTranslated = numbered(3);
        mTable->translate(lTranslated);
        return lTranslated == numbered(4);
    }
    void stop() override {
        if (mTable != nullptr) {
            mTable->unregisterObjectID(numbered(3));
            mTable->clear();
        }
        mTable.reset();
    }

private:
    static ObjectID numbered(unsigned char aNumber) {
        unsigned char lWords[16] = {};
        lWords[0] = aNumber;
        ObjectID lObjectID;
        lObjectID.setData(lWords, sizeof lWords);
        return lObjectID;
    }
    std::unique_ptr<ObjectIDMap> mTable;
};

class Figures : public Service {
public:
    const char* name() const override { return "system information"; }
    const char* line() const override { return "ACE_Hash_Map_Manager_Ex"; }
    bool start() override {
        mFigures.reset(new (std::nothrow) DynamicSysInfo);
        if (mFigures == nullptr) {
            return false;
        }
        mFigures->refresh();
        mFigures->dump();
        return true;
    }
    bool works() override {
        mFigures->refresh();
        return mFigures->getAvgCPU1() >= 0 && mFigures->getTotalMemFree() != 0;
    }
    void stop() override { mFigures.reset(); }

private:
    std::unique_ptr<DynamicSysInfo> mFigures;
};

}  // namespace

Services valueServices() {
    Services lServices;
    lServices.push_back(std::make_unique<Variants>());
    lServices.push_back(std::make_unique<Identifiers>());
    lServices.push_back(std::make_unique<Translations>());
    lServices.push_back(std::make_unique<Figures>());
    return lServices;
}

}  // namespace memory
