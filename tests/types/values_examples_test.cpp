// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The examples of docs/values.md and docs/identifiers.md. tools/check-examples compares them with
// the pages, to the letter.
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "ace/SString.h"
#include "types/Blob.h"
#include "types/FlexVar.h"
#include "types/ObjectID.h"
#include "types/ObjectIDMap.h"

TEST(ValuesExamples, TakeTheirKindFromTheArgument) {
    FlexVar lSpeed(9600);                 // an Int
    FlexVar lName(ACE_CString("ttyS0"));  // a CString
    lSpeed.setLong(115200);               // now a Long
    lName.setValueFromString(ACE_CString("ttyS1"));

    EXPECT_EQ(FlexVar::FlexVar_Long, lSpeed.getType());
    EXPECT_STREQ("FlexVar_CString", lName.getTypeName().c_str());
    EXPECT_STREQ("115200", lSpeed.getValueAsString().c_str());
    EXPECT_STREQ("ttyS1", lName.getCString().c_str());
}

TEST(ValuesExamples, AreNotMadeFromPointers) {
    static_assert(!std::is_constructible_v<FlexVar, const char*>);
    const FlexVar lText(ACE_CString("text"));
    EXPECT_TRUE(lText.isString());
}

TEST(ValuesExamples, DoNotConvert) {
    const FlexVar lValue(5);  // an Int
    long lNumber = 7;
    EXPECT_EQ(0, lValue.getLong());          // an Int is not a Long
    EXPECT_EQ(-1, lValue.getLong(lNumber));  // says so
    EXPECT_EQ(7, lNumber);                   // and leaves the argument alone
}

TEST(ValuesExamples, OfDifferentKindsDoNotMeet) {
    EXPECT_FALSE(FlexVar(1.0F) == FlexVar(1.0));
    EXPECT_FALSE(FlexVar(1) < FlexVar(2L));
    EXPECT_EQ(FlexVar::FlexVar_NoType, (FlexVar(1) + FlexVar(1L)).getType());
}

TEST(ValuesExamples, Wrap) {
    FlexVar lSmall(char(100));
    EXPECT_EQ(200, (lSmall + lSmall).getInt());
    lSmall += lSmall;
    EXPECT_EQ(-56, lSmall.getChar());

    FlexVar lCount(5);
    EXPECT_EQ(6, (lCount++).getInt());  // the new value: written after, but works before
    EXPECT_EQ(FlexVar::FlexVar_NoType, (FlexVar(1) / FlexVar(0)).getType());
}

TEST(ValuesExamples, AppendStrings) {
    FlexVar lPath(ACE_CString("/dev/"));
    lPath += FlexVar(ACE_CString("ttyS0"));
    EXPECT_STREQ("/dev/ttyS0", lPath.getCString().c_str());
}

TEST(ValuesExamples, Compare) {
    unsigned char lBytes[] = {1, 0xAB};
    const FlexVar lBlob(Blob(lBytes, 2, false));
    const FlexVar lCopy(lBlob);
    EXPECT_FALSE(lBlob == lCopy);
    EXPECT_TRUE(lBlob == lBlob);

    const FlexVar lDate(ACE_Date_Time(29, 2, 2000));
    EXPECT_TRUE(lDate.isValidDate());
    EXPECT_TRUE(lDate <= FlexVar(lDate));
    EXPECT_FALSE(lDate < FlexVar(ACE_Date_Time(1, 3, 2000)));
}

TEST(ValuesExamples, OwnTheirObject) {
    FlexVar lValue;
    lValue.setBlob(new Blob(Blob::allocate(1000), 1000, true));
    const std::unique_ptr<Blob> lBlob(lValue.releaseBlob());
    EXPECT_EQ(1000, lBlob->getSize());
    EXPECT_EQ(FlexVar::FlexVar_NoType, lValue.getType());
}

TEST(ValuesExamples, KeepTheirObject) {
    FlexVar lName(ACE_CString("ttyS0"));
    const ACE_CString& lShown = lName.getCString();
    lName = FlexVar(ACE_CString("a name that is longer"));
    EXPECT_STREQ("a name that is longer", lShown.c_str());
}

TEST(ValuesExamples, HaveTheKindOfATextsNotation) {
    FlexVar lValue;
    lValue.setTypeAndValue(ACE_CString("3.5"));
    EXPECT_EQ(3.5, lValue.getDouble());
    lValue.setTypeAndValue(ACE_CString("\"quoted\""));
    EXPECT_STREQ("quoted", lValue.getCString().c_str());
    lValue.setTypeAndValue(ACE_CString("0x10"));  // base 10 here, and never an Int
    EXPECT_EQ(FlexVar::FlexVar_Long, lValue.getType());
    EXPECT_EQ(0, lValue.getLong());
}

TEST(ValuesExamples, ReadTextsWithSurprises) {
    FlexVar lNumber(0);
    EXPECT_EQ(0, lNumber.setValueFromString(ACE_CString("010")));
    EXPECT_EQ(8, lNumber.getInt());
    EXPECT_EQ(-1, lNumber.setValueFromString(ACE_CString("12abc")));
    EXPECT_EQ(8, lNumber.getInt());

    FlexVar lDate(ACE_Date_Time(1, 1, 2000));
    EXPECT_EQ(-1, lDate.setValueFromString(ACE_CString("09-12-2008 10:00:00 000000")));
    EXPECT_EQ(0, lDate.getDateTime().day());
    EXPECT_EQ(0, lDate.setValueFromString(ACE_CString(" 9-12-2008 10:00:00 000000")));
    EXPECT_EQ(9, lDate.getDateTime().day());
}

TEST(ValuesExamples, BorrowOrOwnTheirBytes) {
    unsigned char lBuffer[] = {1, 2, 3};
    const Blob lBorrowed(lBuffer, 3, false);  // sees what happens to the buffer
    const Blob lCopy(lBorrowed);              // does not
    lBuffer[0] = 9;
    EXPECT_EQ(9, lBorrowed.getData()[0]);
    EXPECT_EQ(1, lCopy.getData()[0]);
    EXPECT_FALSE(lBorrowed.isOwner());
    EXPECT_TRUE(lCopy.isOwner());
}

TEST(ValuesExamples, AreIdentifiers) {
    ObjectID lFirst;
    lFirst.generateObjectID();
    ObjectID lAgain;
    lAgain.setFromString(lFirst.toString());
    EXPECT_TRUE(lFirst == lAgain);
}

TEST(ValuesExamples, AreTranslated) {
    ObjectID lOurs;
    lOurs.generateObjectID();
    ObjectID lTheirs;
    lTheirs.generateObjectID();
    ObjectIDMap lMap;
    lMap.add(lOurs, lTheirs);  // replaces what stood for the same key
    ObjectID lID(lOurs);
    lMap.translate(lID);
    EXPECT_TRUE(lID == lTheirs);
}
