#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""What gdb shows of a stopped program: shown_test.py GDB PROGRAM LIBRARY TEST..."""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
from session import (DESCRIPTORS, LIBRARY, QUEUE, VALUES, answers, gdb,  # noqa: E402
                     shown, stopped, table, without_numbers)


class Values(unittest.TestCase):
    def test_OfEachKindAreShown(self):
        self.assertEqual(VALUES, shown(*(f"gValues._M_elems[{kind}]" for kind in range(17))))

    def test_AreShownByReferenceAndInArrays(self):
        reference, array = shown("gReference", "gValues._M_elems[6]@2")
        self.assertTrue(reference.endswith("Int -123456"), reference)
        self.assertEqual("{Int -123456, UInt 4000000000}", array)

    def test_WithoutAnObjectAreNull(self):
        self.assertEqual(["CString null"], shown("gNullText"))

    def test_OfLongTextsAreCutAsGdbIsTold(self):
        self.assertEqual([f'CString "{"x" * 200}"...'], shown("gLongText"))
        self.assertEqual(['CString "xxxxx"...'],
                         shown("gLongText", before=["set print elements 5"]))
        self.assertEqual([f'CString "{"x" * 300}"'],
                         shown("gLongText", before=["set print elements 0"]))

    def test_ThatTheTerminalLacksAreEscaped(self):
        self.assertEqual(['CString "grün \\x01\\x80"'], shown("gForeignText"))
        self.assertEqual(['CString "gr\\u00fcn \\x01\\x80"', 'WString L"wide \\u20ac"'],
                         shown("gForeignText", "gValues._M_elems[13]", environment={"LC_ALL": "C"}))

    def test_OfBytesAreShown(self):
        self.assertEqual(["3 bytes, owned: 00 01 ff", "3 bytes, lent: 00 01 ff"],
                         shown("gBlob", "gLentBlob"))

    def test_OfIdentifiersAreShown(self):
        self.assertEqual(["01234567-89ab-cdef-0123-456789abcdef"], shown("gIdentifier"))

    def test_AreShownRawWhenAskedFor(self):
        raw, = shown("/r gBlob")
        self.assertIn("mSize = 3", raw)


class Queues(unittest.TestCase):
    def test_ShowTheirMessages(self):
        self.assertEqual([QUEUE], shown("*gQueue"))

    def test_ShowThemAlsoAsACEsQueues(self):
        self.assertEqual([QUEUE], shown("*gQueueOfAce"))

    def test_ShowMessagesOfManySegments(self):
        text, = shown("*gLongQueue")
        found = re.findall(r'\[(\d+)\] = \d+ bytes: "message (\d+)\.', text)
        self.assertEqual([(str(index), str(index + 50)) for index in range(100)], found)

    def test_AreShownByTheirHandles(self):
        said = stopped("osx queue (void*)gQueue", "osx queue gTask", "osx queue")
        self.assertEqual(QUEUE, said[0])
        self.assertRegex(said[1], "^osx: 0x[0-9a-f]+ is no handle of a queue.$")
        self.assertEqual("osx: a handle is wanted.", said[2])

    def test_TellTheirState(self):
        self.assertEqual(["0 messages, 0 of 10 bytes, deactivated"], shown("*gEmptyQueue"))

    def test_TellWhoWaits(self):
        self.assertEqual(["0 messages, 0 of 10 bytes, activated, 1 receiver waiting"],
                         shown("*gInbox"))


class Commands(unittest.TestCase):
    def test_NamesShowsTheTable(self):
        rows, total = table(stopped("osx names")[0])
        self.assertEqual("7 names", total)
        self.assertEqual(
            {'""': "queue, 0 messages, 0 of 10 bytes, deactivated", '"traffic light"': "",
             '"behind a descriptor"': "queue, 0 messages, 0 of 10 bytes, activated",
             '"Inbox"': "queue, 0 messages, 0 of 10 bytes, activated, 1 receiver waiting",
             '"letters"': "queue, 4 messages, 5015 of 10000 bytes, activated",
             '"receiving task"': "task"},
            {row[1]: (row[3:] or [""])[0] for row in rows if "100 messages" not in row[-1]})
        self.assertEqual("255", rows[-1][0])

    def test_DescriptorsShowsTheOpenOnes(self):
        rows, total = table(stopped("osx descriptors")[0])
        self.assertEqual("6 descriptors", total)
        self.assertEqual(DESCRIPTORS, without_numbers(rows))

    def test_TimersShowsThePendingOnesInOrder(self):
        handle, text = stopped("print/x (long)gTimer", "osx timers")
        rows, total = table(text)
        self.assertEqual("2 timers", total)
        self.assertEqual([handle.split()[-1], "whenDue"], rows[0][-2:])
        self.assertEqual("3600.000000", rows[0][1])
        self.assertLess(float(rows[0][0]), float(rows[1][0]))

    def test_TasksShowsTheThreadsThatRunThem(self):
        rows, total = table(stopped("osx tasks")[0])
        self.assertEqual("1 task", total)
        self.assertEqual('"receiving task"', rows[0][0])
        self.assertRegex(rows[0][2], r"^thread 2 \(LWP \d+\)$")

    def test_SayThatNothingIsThereBeforeTheProgramRuns(self):
        said = gdb(f"source {LIBRARY}-gdb.py", "osx names", "osx descriptors", "osx timers",
                   "osx tasks", "osx queue 16", target=())
        self.assertEqual(5, said.count("osx: "), said)
        self.assertNotIn("Traceback", said)

    def test_ExplainThemselves(self):
        said = gdb(f"source {LIBRARY}-gdb.py", "help osx", target=())
        for command in ("names", "descriptors", "timers", "tasks", "queue"):
            self.assertRegex(said, rf"osx {command} -- [A-Z]")


class Threads(unittest.TestCase):
    def test_AreShownByTheirNames(self):
        self.assertIn('"receiving task"', stopped("info threads")[0])


class Broken(unittest.TestCase):
    """Memory that holds anything: nothing is raised, and nothing lasts for ever."""

    def check(self, expected, before, *expressions):
        said = shown(*expressions, before=before)
        for text in said:
            self.assertNotRegex(text, "Traceback|Python Exception|Cannot access")
        if expected is not None:
            self.assertEqual(expected, said)
        return said

    def test_NoMemoryAtAll(self):
        types = ("FlexVar", "Blob", "ObjectID", "osx::MessageQueue",
                 "ACE_Message_Queue<ACE_MT_SYNCH, ACE_System_Time_Policy>")
        # By the printer: `print` itself looks whether there is memory.
        told = stopped("python import osx_gdb", *(
            "python print(osx_gdb.find_printer(gdb.parse_and_eval("
            f"'*({name}*)16')).to_string())" for name in types))[1:]
        self.assertEqual(["<unreadable>"] * len(types), told)

    def test_KindsThatAreNone(self):
        self.check(["<no kind 77>", "<no kind -1>"],
                   ["set var gValues._M_elems[6].mType = 77", "set var gNullText.mType = -1"],
                   "gValues._M_elems[6]", "gNullText")

    def test_PointersToNowhere(self):
        wild = [f"set var gValues._M_elems[{kind}].mValue.mBits = 16" for kind in range(12, 17)]
        self.check([f"{kind} <unreadable>" for kind in
                    ("CString", "WString", "DateTime", "Blob", "ObjectID")],
                   wild, *(f"gValues._M_elems[{kind}]" for kind in range(12, 17)))

    def test_SizesThatAreNone(self):
        self.check(["2147483647 bytes, owned: <unreadable>", "-2 bytes, lent"],
                   ["set var gBlob.mSize = 0x7fffffff", "set var gBlob.mData = 4096",
                    "set var gLentBlob.mSize = -2"], "gBlob", "gLentBlob")

    def test_TextsWithoutEnd(self):
        self.check(["CString <unreadable>", "WString <unreadable>"],
                   ["set var gLongText.mValue.mCString.len_ = -1",
                    "set var gLongText.mValue.mCString.rep_ = 16",
                    "set var gValues._M_elems[13].mValue.mWString.len_ = -1",
                    "set var gValues._M_elems[13].mValue.mWString.rep_ = 16"],
                   "gLongText", "gValues._M_elems[13]")

    def test_QueuesInRings(self):
        first = "*(void**)&gLongQueue->mStore.mFirst"
        said = self.check(None, ["set var gQueue->head_->next_ = gQueue->head_",
                                 "set var gQueue->cur_count_ = -1",
                                 f"set var *(void**){first} = {first}"], "*gQueue", "*gLongQueue")
        self.assertEqual(200, said[0].count('7 bytes: "a block"'))
        self.assertIn(" = <unreadable>}", said[1])

    def test_QueuesWithSegmentsThatAreNone(self):
        said = self.check(None, ["set var gLongQueue->mStore.mLast = 16",
                                 "set var gQueue->mStore.mRead = 16"], "*gLongQueue", "*gQueue")
        self.assertIn(" = <unreadable>}", said[0])
        self.assertIn("[1] = <unreadable>}", said[1])

    def test_QueuesOfAnyBytes(self):
        said = self.check(None, ["python gdb.selected_inferior().write_memory("
                                 "int(gdb.parse_and_eval('gEmptyQueue')), b'w' * 200)"],
                          "*gEmptyQueue", "*(ACE_Message_Queue<ACE_MT_SYNCH>*)gEmptyQueue")
        self.assertIn("<no state", said[0])

    def test_TablesOfAnyBytes(self):
        def fill(place, size):
            return ("python gdb.selected_inferior().write_memory("
                    f"int(gdb.parse_and_eval(\"(unsigned long)&'{place}'\")), b'w' * {size})")
        names, descriptors = stopped(
            fill("(anonymous namespace)::gTable", 1000), fill("commIfDesc", 5000), "osx names",
            "osx descriptors")[2:]
        self.assertRegex(names, r"\d+ names$")
        self.assertIn("w" * 64, names)
        self.assertRegex(descriptors, r"\d+ descriptors$")
        for text in (names, descriptors):
            self.assertNotRegex(text, "Traceback|Python Exception")


class Libraries(unittest.TestCase):
    """What a device has: a library without symbols, which may be in a file of their own."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.copy = pathlib.Path(self.folder.name, pathlib.Path(LIBRARY).name)
        shutil.copy(LIBRARY, self.copy)
        soname = re.search(r"SONAME\s+(\S+)", self.run_tool("objdump", "-p", LIBRARY))[1]
        self.copy.with_name(soname).symlink_to(self.copy)

    def tearDown(self):
        self.folder.cleanup()

    def run_tool(self, *command):
        return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout

    def names(self):
        said = gdb("break stopHere", "run", f"source {LIBRARY}-gdb.py", "osx names",
                   "osx descriptors", environment={"LD_LIBRARY_PATH": self.folder.name})
        return answers(said, [None] * 2)

    def test_WithoutSymbolsAreNamed(self):
        self.run_tool("strip", self.copy)
        names, descriptors = self.names()
        self.assertRegex(names, r"^osx: .*debugging information")
        self.assertIn("6 descriptors", descriptors)

    def test_WithSymbolsInAFileOfTheirOwnAreRead(self):
        symbols = self.copy.with_suffix(".debug")
        self.run_tool("objcopy", "--only-keep-debug", self.copy, symbols)
        self.run_tool("strip", self.copy)
        self.run_tool("objcopy", f"--add-gnu-debuglink={symbols}", self.copy)
        self.assertIn("7 names", self.names()[0])

    def test_OfNoTrustedFolderRunNothing(self):
        said = gdb("break stopHere", "run", "osx names", safe="/nowhere")
        self.assertIn('Undefined command: "osx"', said)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
