// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "devices/DeviceList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Folder.h"
#include "common/Failure.h"
#include "run.h"

namespace {

using command::Device;
using command::DeviceList;
using testing::HasSubstr;

constexpr char kFile[] =
    "groups:\n"
    "  boats: [gps2, gps1]\n"
    "devices:\n"
    "  gps1: {host: 10.0.0.5, port: 3000, level-port: 3001}\n"
    "  gps2:\n"
    "    host: gps2.example\n";

std::string complaintOf(const std::string& aFile) {
    const test::Folder lFolder;
    const std::string lPath = lFolder.write("d.yaml", aFile);
    try {
        DeviceList::read(lPath);
    } catch (const command::Failure& lFailure) {
        EXPECT_EQ(command::kBadInput, lFailure.status());
        return lFailure.what();
    }
    return "no complaint";
}

}  // namespace

TEST(Devices, AreChosenByNameGroupAndAddressEachOnce) {
    const test::Folder lFolder;
    const DeviceList lList = DeviceList::read(lFolder.write("d.yaml", kFile));
    const auto lChosen = lList.chosen({"boats", "gps1", "10.0.0.9", "10.0.0.9:99"});
    ASSERT_EQ(4U, lChosen.size());
    EXPECT_EQ("gps2", lChosen[0].name);
    EXPECT_EQ("gps2.example", lChosen[0].host);
    EXPECT_EQ(command::kRedirectPort, lChosen[0].port);
    EXPECT_EQ(command::kLevelPort, lChosen[0].levelPort);
    EXPECT_EQ("gps1", lChosen[1].name);
    EXPECT_EQ(3000, lChosen[1].port);
    EXPECT_EQ(3001, lChosen[1].levelPort);
    EXPECT_EQ(command::kRedirectPort, lChosen[2].port);
    EXPECT_EQ(99, lChosen[3].port);
}

TEST(Devices, SayWhichLineOfTheirFileIsWrong) {
    const struct {
        const char* file;
        const char* complaint;
    } lWrong[] = {
        {"devices:\n  a: {host: h, port: 0}\n", "d.yaml:2: 'port' is no number from 1 to 65535"},
        {"devices:\n  a:\n    host: h\n    prot: 5\n", "d.yaml:4: 'prot' is none of 'host'"},
        {"devices:\n  a: {port: 5}\n", "d.yaml:2: 'a' has no 'host'"},
        {"devices:\n  5: {host: h}\n", "d.yaml:2: '5' is no name"},
        {"devices:\n  a: {host: \"h\\e[2J\"}\n", "d.yaml:2: 'h\\x1b[2J' is no host"},
        {"devices:\n  a: {host: h}\n  a: {host: i}\n", "d.yaml:3: 'a' is there already"},
        {"devices:\n  a: {host: h}\ngroups:\n  a: [a]\n", "d.yaml:4: 'a' is there already"},
        {"devices:\n  a: {host: h}\ngroups:\n  g:\n  - b\n", "d.yaml:5: 'b' is no device of"},
        {"devices:\n  a: h\n", "d.yaml:2: 'a' is no list of 'name: value'"},
        {"- a\n", "d.yaml:1: the file is no list of 'name: value'"},
        {"hosts: {}\n", "d.yaml:1: 'hosts' is neither 'devices' nor 'groups'"},
        {"devices:\n  a: {host: h\n", "d.yaml:3: "},
        {"devices:\n\ta: 5\n", "d.yaml:2: "},
    };
    for (const auto& lEach : lWrong) {
        EXPECT_THAT(complaintOf(lEach.file), HasSubstr(lEach.complaint)) << lEach.file;
    }
    EXPECT_THAT(complaintOf(std::string(100000, '[')), HasSubstr("d.yaml:1: "));
    EXPECT_THAT(complaintOf(std::string(2000000, '#')), HasSubstr("is larger than"));
    EXPECT_EQ("no complaint", complaintOf("")) << "an empty file has no devices";
}

TEST(Devices, ThatMakeNoSenseEndTheCommandWithOneLineAndStatus2) {
    const test::Folder lFolder;
    const struct {
        std::vector<std::string> arguments;
        std::string line;
    } lWrong[] = {
        {{"watch"}, "osx: DEVICE is required\n"},
        {{"watch", "a:0"}, "osx: 'a:0': the port is a number from 1 to 65535\n"},
        {{"watch", "a b"}, "osx: 'a b' is no device, group, host or host:port\n"},
        {{"watch", "--devices", "/none", "a"}, "osx: /none: No such file or directory\n"},
        {{"watch", "--devices", lFolder.path(), "a"},
         "osx: " + lFolder.path() + ": Is a directory\n"},
        {{"watch", "--nonesuch", "a"},
         "osx: The following argument was not expected: --nonesuch\n"},
        {{"nonesuch"}, "osx: The following argument was not expected: nonesuch\n"},
        {{}, "osx: a command is missing; osx --help names them\n"},
    };
    for (const auto& lEach : lWrong) {
        const test::Result lResult = test::run(lEach.arguments);
        EXPECT_EQ(2, lResult.status);
        EXPECT_EQ(lEach.line, lResult.output);
    }
}
