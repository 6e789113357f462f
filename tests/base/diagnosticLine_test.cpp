// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "base/diagnosticLine.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Callback.h"
#include "ace/Log_Record.h"
#include "base/assertion.h"
#include "support/FailingAllocator.h"
#include "support/InstalledBackend.h"
#include "support/LogCapture.h"
#include "support/cancellation.h"
#include "support/inChild.h"

using osx::DiagnosticLine;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {
constexpr char kModule[] = "module.cpp";
}

TEST(DiagnosticLine, FailureCarriesModuleLineStatusAndErrno) {
    const test::LogCapture lLog;
    errno = EPERM;
    const int lHere = __LINE__ + 1;
    DiagnosticLine(kModule).failure(LM_ERROR, "%t thing: lost [%d]\n", 5);

    const auto lLines = lLog.lines();
    ASSERT_EQ(1U, lLines.size());
    EXPECT_EQ(LM_ERROR, lLines[0].priority);
    EXPECT_EQ(kModule, lLines[0].module);
    EXPECT_EQ(lHere, lLines[0].sourceLine);
    EXPECT_EQ(-1, lLines[0].status);
    EXPECT_EQ(EPERM, lLines[0].errnum);
    EXPECT_THAT(lLog.texts(), ElementsAre("%t thing: lost [5]\n"));
}

TEST(DiagnosticLine, KeepsErrno) {
    const test::LogCapture lLog;
    errno = ENOMEM;
    DiagnosticLine(kModule).failure(LM_DEBUG, "%t x\n");
    EXPECT_EQ(ENOMEM, errno);
}

TEST(DiagnosticLine, FailureIsWrittenWhateverTheLevel) {
    const test::LogCapture lLog;
    const test::TraceLevel lLevel(0, false);
    DiagnosticLine(kModule).failure(LM_DEBUG, "%t x\n");
    EXPECT_EQ(1U, lLog.lines().size());
}

TEST(DiagnosticLine, TraceIsWrittenFromItsLevelOn) {
    const test::LogCapture lLog;
    for (const unsigned int lLevel : {0U, 4U}) {
        const test::TraceLevel lTrace(lLevel);
        DiagnosticLine(kModule).trace(5, "%t x\n");
    }
    EXPECT_THAT(lLog.lines(), IsEmpty());
    for (const unsigned int lLevel : {5U, 6U, 0xFFFFFFFFU}) {
        const test::TraceLevel lTrace(lLevel);
        DiagnosticLine(kModule).trace(5, "%t x\n");
    }
    const auto lLines = lLog.lines();
    ASSERT_EQ(3U, lLines.size());
    EXPECT_EQ(LM_DEBUG, lLines[0].priority);
    EXPECT_EQ(0, lLines[0].status);
}

TEST(DiagnosticLine, TraceNeedsAcesDebugSwitch) {
    const test::LogCapture lLog;
    const test::TraceLevel lTrace(9, false);
    DiagnosticLine(kModule).trace(1, "%t x\n");
    EXPECT_THAT(lLog.lines(), IsEmpty());
}

TEST(DiagnosticLine, PassesNumbersAndPointersAs32Bits) {
    const test::LogCapture lLog;
    const unsigned long lWide = 0xFFFFFFFFUL;
    DiagnosticLine(kModule).failure(LM_DEBUG, "[%d] [%x] [%s] [%.1f] [%d]\n", lWide,
                                    reinterpret_cast<void*>(0x1234), "text", 1.5, -7L);
    EXPECT_THAT(lLog.texts(), ElementsAre("[-1] [1234] [text] [1.5] [-7]\n"));
}

TEST(DiagnosticLine, PrintsANullTextWithoutCrashing) {
    const test::LogCapture lLog;
    const char* const lNone = nullptr;
    DiagnosticLine(kModule).failure(LM_DEBUG, "[%s]\n", lNone);
    EXPECT_THAT(lLog.texts(), ElementsAre("[(null)]\n"));
}

TEST(DiagnosticLine, CutsALongTextSoThatTheLineHasItsEnd) {
    const test::LogCapture lLog;
    const std::string lLong(5000, 'x');
    DiagnosticLine(kModule).failure(LM_ERROR, "%t thing: lost [%s] of [%s], %d of 100%%s\n",
                                    lLong.c_str(), "short", -2000000000);
    DiagnosticLine(kModule).failure(LM_ERROR, "[%s]\n", lLong.c_str());
    const auto lTexts = lLog.texts();
    ASSERT_EQ(2U, lTexts.size());
    EXPECT_THAT(lTexts[0], testing::MatchesRegex("%t thing: lost .x+. of .short., -2000000000 of "
                                                 "100%s\n"));
    EXPECT_GT(lTexts[0].size(), 2000U);
    EXPECT_THAT(lTexts[1], testing::MatchesRegex(".x+.\n"));
    EXPECT_GT(lTexts[1].size(), 4000U);
}

TEST(DiagnosticLine, LeavesATextOfAThousandCharactersAsItIs) {
    const test::LogCapture lLog;
    const std::string lText(1000, 'x');
    DiagnosticLine(kModule).failure(LM_ERROR, "%t [%s] [%s] [%s]\n", lText.c_str(), lText.c_str(),
                                    lText.c_str());
    EXPECT_THAT(lLog.texts(), ElementsAre("%t [" + lText + "] [" + lText + "] [" + lText + "]\n"));
}

namespace {
void writeOnce() {
    DiagnosticLine(kModule).failure(LM_ERROR, "%t x\n");
}
}  // namespace

namespace {

/// What differs between two moments is left out.
std::string withoutDigits(std::string aText) {
    aText.erase(std::remove_if(aText.begin(), aText.end(),
                               [](char aOne) { return std::isdigit(aOne) != 0; }),
                aText.end());
    return aText;
}

/// @return whether a line of the library's and one of ACE's have the same text, which is also the
/// log's `msg` afterwards.
bool looksAsAcesOwn(const char* aFormat, const char* aText) {
    constexpr int kLine = 12;
    constexpr int kNumber = -5;
    constexpr double kFraction = 1.5;
    const test::LogCapture lCapture;
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->conditional_set(kModule, kLine, -1, EPERM);
    lLog->log(LM_ERROR, aFormat, aText, kNumber, 7, 255, kFraction);
    DiagnosticLine(kModule, kLine).failure(LM_ERROR, aFormat, aText, kNumber, 7U, 255, kFraction);
    const auto lLines = lCapture.lines();
    return lLines.size() == 2 && lLines[0].text.size() == lLines[1].text.size() &&
           withoutDigits(lLines[0].text) == withoutDigits(lLines[1].text) &&
           lLines[1].text == lLog->msg();
}

bool allLookAsAcesOwn() {
    const std::string lLong(3000, 'x');
    return looksAsAcesOwn("%t %N %l %T: %s, %d, %u, %x, %f %% [%%s]\n", "a text") &&
           looksAsAcesOwn("%T [%s] %d %u %x %.1f\n", lLong.c_str()) &&
           looksAsAcesOwn("%s %d %u %x %f 100%%", nullptr) && looksAsAcesOwn("", "");
}

}  // namespace

TEST(DiagnosticLine, LooksAsIfAceHadWrittenIt) {
    EXPECT_TRUE(allLookAsAcesOwn());
}

TEST(DiagnosticLine, HasTheProgramsNameWhereAcesLinesHaveIt) {
    EXPECT_TRUE(test::inChild([] {
        ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
        lLog->set_flags(ACE_Log_Msg::VERBOSE);
        const bool lHolds = allLookAsAcesOwn();
        lLog->open("program", ACE_Log_Msg::VERBOSE);
        return lHolds && allLookAsAcesOwn() && std::string(lLog->msg()).substr(0, 8) == "program|";
    }));
}

TEST(DiagnosticLine, HasTheTimeWhereAcesLinesHaveIt) {
    for (const char* const lKind : {"TIME", "DATE"}) {
        EXPECT_TRUE(test::inChild([lKind] {
            ::setenv("ACE_LOG_TIMESTAMP", lKind, 1);
            bool lHolds = false;
            std::thread([&] {
                lHolds = allLookAsAcesOwn() &&
                         std::strchr(ACE_Log_Msg::instance()->msg(), '|') != nullptr;
            }).join();
            return lHolds;
        })) << lKind;
    }
}

namespace {
void writeALongLine() {
    const std::string lLong(5000, 'x');
    DiagnosticLine(kModule).failure(LM_ERROR, "[%s]\n", lLong.c_str());
}
}  // namespace

TEST(DiagnosticLine, MayBeWrittenWhileAnotherIsPutTogether) {
    const test::LogCapture lLog;
    ACE_Log_Msg::instance()->log(LM_ERROR, "before%r after\n", &writeALongLine);
    const auto lTexts = lLog.texts();
    ASSERT_EQ(2U, lTexts.size());
    EXPECT_THAT(lTexts[0], testing::MatchesRegex(".x+.\n"));
    EXPECT_EQ("before after\n", lTexts[1]);
}

TEST(DiagnosticLine, LeavesAMaskedLineOut) {
    const test::LogCapture lLog;
    ACE_Log_Msg* const lAces = ACE_Log_Msg::instance();
    const auto lOfProcess = lAces->priority_mask(0, ACE_Log_Msg::PROCESS);
    const auto lOfThread = lAces->priority_mask(LM_DEBUG, ACE_Log_Msg::THREAD);
    DiagnosticLine(kModule).failure(LM_ERROR, "left out\n");
    DiagnosticLine(kModule).failure(LM_DEBUG, "written\n");
    lAces->priority_mask(lOfProcess, ACE_Log_Msg::PROCESS);
    lAces->priority_mask(lOfThread, ACE_Log_Msg::THREAD);
    EXPECT_THAT(lLog.texts(), ElementsAre("written\n"));
}

namespace {

/// Adds to the text of a line, as an application's may.
class AddingCallback : public ACE_Log_Msg_Callback {
    void log(ACE_Log_Record& aRecord) override {
        aRecord.msg_data((std::string("added: ") + aRecord.msg_data()).c_str());
    }
};

}  // namespace

TEST(DiagnosticLine, GoesThroughTheThreadsCallback) {
    const test::LogCapture lLog;
    ACE_Log_Msg* const lAces = ACE_Log_Msg::instance();
    AddingCallback lCallback;
    lAces->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    lAces->msg_callback(&lCallback);
    writeOnce();
    writeOnce();
    lAces->msg_callback(nullptr);
    lAces->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    EXPECT_EQ(2U, lLog.countContaining("added: "));
}

TEST(DiagnosticLine, AThreadMayBeCancelledWhereItIsWritten) {
    const test::CancellingLog lLog;
    const test::TraceLevel lTrace(9);
    EXPECT_TRUE(test::isCancelledIn([] { writeOnce(); }));
    EXPECT_TRUE(test::isCancelledIn([] { DiagnosticLine(kModule).trace(9, "%t x\n"); }));
    EXPECT_TRUE(test::isCancelledIn([] { DiagnosticLine(kModule).notice("x\n"); }));
    EXPECT_TRUE(test::isCancelledIn([] { osx::reportFailedAssertion("false", kModule); }));
    writeOnce();  // as the others' lock is free
}

TEST(DiagnosticLine, AThreadMayBeCancelledWhereItGoesToStandardError) {
    EXPECT_TRUE(test::isCancelledIn([] {
        const test::LossAccepted lOfAcesBufferForTheLine;
        writeOnce();
    }));
    writeOnce();
}

namespace {

bool writesALine() {
    DiagnosticLine(kModule).failure(LM_ERROR, "%t x\n");
    return true;
}

class ThrowingBackend : public test::LineBackend {
    ssize_t log(ACE_Log_Record&) override { throw std::runtime_error("no"); }
    test::InstalledBackend mInstalled{*this};
};

}  // namespace

TEST(DiagnosticLine, SurvivesStandardErrorWithoutAReader) {
    EXPECT_TRUE(test::inChild([] {
        std::array<int, 2> lEnds{};
        if (::pipe(lEnds.data()) != 0) {
            return false;
        }
        ::dup2(lEnds[1], STDERR_FILENO);
        ::close(lEnds[0]);
        std::signal(SIGPIPE, SIG_DFL);
        return writesALine() && writesALine();
    }));
}

TEST(DiagnosticLine, SurvivesAFileThatMayNotGrow) {
    EXPECT_TRUE(test::inChild([] {
        std::string lName = testing::TempDir() + "osx-line-XXXXXX";
        const int lFile = ::mkstemp(lName.data());
        ::unlink(lName.c_str());
        ::dup2(lFile, STDERR_FILENO);
        std::signal(SIGXFSZ, SIG_DFL);
        const rlimit lNothing{0, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &lNothing);
        return writesALine() && writesALine();
    }));
}

/// Standard error of this process, read back.
class ReadBack {
public:
    ReadBack() {
        std::string lName = testing::TempDir() + "osx-line-XXXXXX";
        mFile = ::mkstemp(lName.data());
        ::unlink(lName.c_str());
        ::dup2(mFile, STDERR_FILENO);
    }
    std::string text() const {
        char lText[10000] = "";
        return {lText, static_cast<std::size_t>(::pread(mFile, lText, sizeof lText, 0))};
    }

private:
    int mFile;
};

TEST(DiagnosticLine, SurvivesALackOfMemory) {
    for (int lAllowed = 0; lAllowed < 6; ++lAllowed) {
        EXPECT_TRUE(test::inChild([lAllowed] {
            const test::LogCapture lLog;
            std::thread([lAllowed] {
                const test::FailingAllocator lFailing(lAllowed);
                writesALine();
            }).join();
            writesALine();
            return lLog.count("%t x\n") > 0;
        })) << lAllowed;
    }
}

TEST(DiagnosticLine, GoesToStandardErrorWithoutMemory) {
    EXPECT_TRUE(test::inChild([] {
        const ReadBack lStandardError;
        {
            const test::FailingAllocator lFailing;
            osx::DiagnosticLine("x.cpp", 3)
                .failure(LM_ERROR, "%t %N %l %s, %d and %x of 100%%: %f %u\n", "a text", -1, 255,
                         0.5, 7U);
        }
        return lStandardError.text() ==
               std::to_string(::gettid()) + " x.cpp 3 a text, -1 and ff of 100%: 0.500000 7\n";
    }));
}

namespace {

void writeAFailure() {
    DiagnosticLine(kModule).failure(LM_ERROR, "a failure\n");
}

/// On a thread of its own, for whose log there is no memory yet, or on one that has a log.
template <class Check>
bool onAThread(bool aHasLog, Check aCheck) {
    bool lHolds = false;
    std::thread([&] {
        if (aHasLog) {
            ACE_Log_Msg::instance();
        }
        lHolds = aCheck();
    }).join();
    return lHolds;
}

/// @return whether a failure reaches standard error, once, while so many allocations fail.
bool reachesStandardError(bool aHasLog, int aAllowed, int aFailures) {
    const ReadBack lStandardError;
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::STDERR);
    return onAThread(aHasLog, [&] {
        const test::FailingAllocator lFailing(aAllowed, aFailures);
        writeAFailure();
        return lStandardError.text() == "a failure\n";
    });
}

}  // namespace

TEST(DiagnosticLine, SurvivesEachAllocationThatFailsOnce) {
    for (const bool lHasLog : {false, true}) {
        for (int lAllowed = 0; lAllowed < 6; ++lAllowed) {
            EXPECT_TRUE(test::inChild([=] { return reachesStandardError(lHasLog, lAllowed, 1); }))
                << lHasLog << ' ' << lAllowed;
        }
    }
}

TEST(DiagnosticLine, SurvivesMemoryThatComesBackInTheMiddleOfIt) {
    for (const bool lHasLog : {false, true}) {
        for (int lAllowed = 0; lAllowed < 4; ++lAllowed) {
            for (int lFailures = 2; lFailures < 5; ++lFailures) {
                EXPECT_TRUE(test::inChild([=] {
                    return reachesStandardError(lHasLog, lAllowed, lFailures);
                })) << lHasLog
                    << ' ' << lAllowed << ' ' << lFailures;
            }
        }
    }
}

TEST(DiagnosticLine, NeedsNoMemoryWhereItGoesToStandardErrorAlone) {
    EXPECT_TRUE(test::inChild([] { return reachesStandardError(true, 0, 1000); }));
}

TEST(DiagnosticLine, KeepsItsPlaceInAStandardErrorThatIsBuffered) {
    EXPECT_TRUE(test::inChild([] {
        const ReadBack lStandardError;
        std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
        std::fputs("before, ", stderr);
        writeAFailure();
        return lStandardError.text() == "before, a failure\n";
    }));
}

namespace {

/// Writes a failure to a file, while an allocation fails, and then another line.
/// @return what is in the file then, and on standard error.
std::string writtenToFile(u_long aFlags, int aAllowed, int aErrno) {
    const ReadBack lStandardError;
    const std::string lName = testing::TempDir() + "osx-line-" + std::to_string(::getpid());
    std::ofstream lFile(lName);
    ACE_Log_Msg* const lLog = ACE_Log_Msg::instance();
    lLog->msg_ostream(&lFile, false);
    lLog->clr_flags(ACE_Log_Msg::STDERR);
    lLog->set_flags(ACE_Log_Msg::OSTREAM | aFlags);
    errno = aErrno;
    {
        const test::FailingAllocator lFailing(aAllowed, true);
        writeAFailure();
    }
    const bool lIsKept = errno == aErrno;
    lLog->clr_flags(ACE_Log_Msg::STDERR);
    DiagnosticLine(kModule).failure(LM_ERROR, "next\n");
    std::ostringstream lInFile;
    lInFile << std::ifstream(lName).rdbuf();
    ::unlink(lName.c_str());
    return lIsKept ? lInFile.str() + "; " + lStandardError.text() : "another errno";
}

std::string lostLine(int aCount) {
    return std::to_string(::gettid()) + " [" + std::to_string(aCount) +
           "] lines lost for want of memory\n";
}

/// Writes a line that finds no memory.
void lose(ACE_Log_Priority aPriority = LM_ERROR) {
    const test::FailingAllocator lFailing;
    DiagnosticLine(kModule).failure(aPriority, "lost\n");
}

}  // namespace

TEST(DiagnosticLine, IsToldAsLostIfThereIsNoMemoryForTheStream) {
    for (int lAllowed = 0; lAllowed < 4; ++lAllowed) {
        const int lErrno = lAllowed % 2 == 0 ? ENOMEM : EPERM;
        EXPECT_TRUE(test::inChild([=] {
            const std::string lFound = writtenToFile(0, lAllowed, lErrno);
            return lFound == (lAllowed < 2 ? lostLine(1) + "next\n; " : "a failure\nnext\n; ");
        })) << lAllowed;
    }
}

TEST(DiagnosticLine, GoesToStandardErrorIfThereIsNoMemoryForTheStream) {
    EXPECT_TRUE(test::inChild([] {
        const std::string lFound = writtenToFile(ACE_Log_Msg::STDERR, 0, EPERM);
        return lFound == "next\n; a failure\n";
    }));
}

TEST(DiagnosticLine, OfATraceGoesToStandardErrorWithoutMemory) {
    EXPECT_TRUE(test::inChild([] {
        const ReadBack lStandardError;
        {
            const test::FailingAllocator lFailing;
            DiagnosticLine(kModule).notice("x\n");
        }
        return lStandardError.text() == "x\n";
    }));
}

TEST(DiagnosticLine, LeavesStandardErrorAloneWhereLinesDoNotGoThere) {
    for (const bool lHasLog : {false, true}) {
        EXPECT_TRUE(test::inChild([lHasLog] {
            const ReadBack lStandardError;
            const test::LogCapture lLog;
            const bool lHolds = onAThread(lHasLog, [&] {
                lose();
                lose(LM_DEBUG);
                return lStandardError.text().empty();
            });
            writeAFailure();
            writeAFailure();
            return lHolds && lStandardError.text().empty() &&
                   lLog.texts() ==
                       std::vector<std::string>{"%t [2] lines lost for want of memory\n",
                                                "a failure\n", "a failure\n"};
        })) << lHasLog;
    }
}

TEST(DiagnosticLine, IsNotWrittenWithoutMemoryIfItIsMasked) {
    for (const bool lHasLog : {false, true}) {
        EXPECT_TRUE(test::inChild([lHasLog] {
            const ReadBack lStandardError;
            ACE_Log_Msg::instance()->priority_mask(LM_DEBUG, ACE_Log_Msg::PROCESS);
            return onAThread(lHasLog, [&] {
                lose(LM_ERROR);
                const bool lIsMasked = lStandardError.text().empty();
                lose(LM_DEBUG);
                return lIsMasked && lStandardError.text() == "lost\n";
            });
        })) << lHasLog;
    }
}

TEST(DiagnosticLine, IsNotWrittenWithoutMemoryByALogThatIsSilent) {
    EXPECT_TRUE(test::inChild([] {
        const ReadBack lStandardError;
        ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::SILENT);
        lose();
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::SILENT);
        writeAFailure();
        return lStandardError.text() == "a failure\n";
    }));
}

TEST(DiagnosticLine, IsToldAsLostOnlyWithALineThatIsWritten) {
    const test::LogCapture lLog;
    ACE_Log_Msg* const lAces = ACE_Log_Msg::instance();
    lose();
    const auto lMask = lAces->priority_mask(LM_DEBUG, ACE_Log_Msg::PROCESS);
    lose(LM_ERROR);
    writeAFailure();
    DiagnosticLine(kModule).notice("of LM_DEBUG\n");
    lAces->priority_mask(lMask, ACE_Log_Msg::PROCESS);
    lose();
    writeAFailure();
    EXPECT_THAT(lLog.texts(), ElementsAre("of LM_DEBUG\n", "%t [2] lines lost for want of memory\n",
                                          "a failure\n"));
    const auto lLines = lLog.lines();
    ASSERT_EQ(3U, lLines.size());
    EXPECT_EQ("osxACE.cpp", lLines[1].module);
    EXPECT_EQ(LM_ERROR, lLines[1].priority);
    EXPECT_EQ(kModule, lLines[2].module);
}

namespace {

/// Writes a line of its own with each line that it gets from others, and loses one.
class WritingBackend : public test::LineBackend {
public:
    ssize_t log(ACE_Log_Record& aRecord) override {
        mTexts.emplace_back(aRecord.msg_data());
        if (!mIsWriting) {
            mIsWriting = true;
            lose();
            DiagnosticLine(kModule).failure(LM_ERROR, "its own\n");
            mIsWriting = false;
        }
        return 0;
    }
    std::vector<std::string> mTexts;

private:
    bool mIsWriting = false;
    test::InstalledBackend mInstalled{*this};
};

}  // namespace

TEST(DiagnosticLine, MayBeWrittenAndLostByABackEndThatIsToldOfLostOnes) {
    const WritingBackend lBackend;
    lose();
    writeAFailure();
    EXPECT_THAT(lBackend.mTexts, ElementsAre(lostLine(1), lostLine(1), "its own\n", "a failure\n",
                                             lostLine(1), "its own\n"));
}

TEST(DiagnosticLine, CountsEachLostOneOnceWhateverTheThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 500;
    const test::LogCapture lLog;
    std::vector<std::thread> lThreads;
    for (int lThread = 0; lThread < kThreads; ++lThread) {
        lThreads.emplace_back([] {
            for (int lRound = 0; lRound < kRounds; ++lRound) {
                lose();
                writeAFailure();
            }
        });
    }
    for (std::thread& lThread : lThreads) {
        lThread.join();
    }
    writeAFailure();
    int lTold = 0;
    for (const auto& lLine : lLog.lines()) {
        const auto lNumber = lLine.text.find('[');
        lTold += lNumber == std::string::npos ? 0 : std::stoi(lLine.text.substr(lNumber + 1));
    }
    EXPECT_EQ(kThreads * kRounds, lTold);
    EXPECT_EQ(static_cast<std::size_t>(kThreads * kRounds + 1), lLog.count("a failure\n"));
}

namespace {

/// @return what such a text looks like in a line without memory.
std::string withoutMemory(const std::string& aFormat, const std::string& aText) {
    const ReadBack lStandardError;
    {
        const test::FailingAllocator lFailing;
        DiagnosticLine(kModule).failure(LM_ERROR, aFormat.c_str(), aText.c_str(), 5);
    }
    return lStandardError.text();
}

}  // namespace

TEST(DiagnosticLine, HasItsEndWithoutMemoryHoweverLongTheTextIs) {
    const std::string lLongFormat = std::string(600, 'f') + " [%s] [%d]\n";
    for (const std::size_t lLength : {500U, 512U, 513U, 1000U, 1024U, 1500U, 5000U}) {
        EXPECT_TRUE(test::inChild([lLength] {
            const std::string lLine = withoutMemory("[%s] [%d]\n", std::string(lLength, 'x'));
            return lLine.substr(0, 400) == "[" + std::string(399, 'x') &&
                   lLine.substr(lLine.size() - 7) == "x] [5]\n";
        })) << lLength;
        EXPECT_TRUE(test::inChild([&] {
            const std::string lLine = withoutMemory(lLongFormat, std::string(lLength, 'x'));
            return lLine.size() > 900 && lLine.back() == '\n';
        })) << lLength;
    }
}

TEST(DiagnosticLine, SurvivesABackEndThatThrows) {
    {
        const ThrowingBackend lBackend;
        writesALine();
    }
    const test::LogCapture lLog;
    std::thread(writesALine).join();
    writesALine();
    EXPECT_EQ(2U, lLog.lines().size());
}
