// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/IntrusiveList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Element : osx::Listed<Element> {
    explicit Element(int aNumber) : number(aNumber) {}
    int number;
};

std::vector<int> numbers(const osx::IntrusiveList<Element>& aList) {
    std::vector<int> lNumbers;
    for (const Element& lElement : aList) {
        lNumbers.push_back(lElement.number);
    }
    return lNumbers;
}

/// Three elements, added in the order of their numbers.
struct Three {
    Element one{1};
    Element two{2};
    Element three{3};
    osx::IntrusiveList<Element> list;

    Three() {
        list.add(one);
        list.add(two);
        list.add(three);
    }
};

}  // namespace

TEST(IntrusiveList, IsEmptyAtFirst) {
    osx::IntrusiveList<Element> lList;
    EXPECT_THAT(numbers(lList), IsEmpty());
    EXPECT_EQ(nullptr, lList.takeLatest());
}

TEST(IntrusiveList, HasTheLatestElementFirst) {
    const Three lThree;
    EXPECT_THAT(numbers(lThree.list), ElementsAre(3, 2, 1));
}

TEST(IntrusiveList, GivesUpTheFirstTheMiddleAndTheLast) {
    Three lThree;
    lThree.list.remove(lThree.two);
    EXPECT_THAT(numbers(lThree.list), ElementsAre(3, 1));
    lThree.list.remove(lThree.one);
    EXPECT_THAT(numbers(lThree.list), ElementsAre(3));
    lThree.list.remove(lThree.three);
    EXPECT_THAT(numbers(lThree.list), IsEmpty());
}

TEST(IntrusiveList, TakesBackWhatItGaveUp) {
    Three lThree;
    EXPECT_EQ(&lThree.three, lThree.list.takeLatest());
    EXPECT_THAT(numbers(lThree.list), ElementsAre(2, 1));
    lThree.list.remove(lThree.one);
    lThree.list.add(lThree.one);
    lThree.list.add(lThree.three);
    EXPECT_THAT(numbers(lThree.list), ElementsAre(3, 1, 2));
}

TEST(IntrusiveList, LeavesTheElementsToThemselves) {
    Three lThree;
    lThree.list.forgetAll();
    EXPECT_THAT(numbers(lThree.list), IsEmpty());
    lThree.list.add(lThree.two);
    EXPECT_THAT(numbers(lThree.list), ElementsAre(2));
}
