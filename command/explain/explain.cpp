// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "explain/explain.h"

#include <cstring>

#include "common/Failure.h"
#include "common/Output.h"
#include "common/text.h"
#include "explain/LineCatalogue.h"
#include "explain/StatusCodes.h"
#include "level/level.h"

namespace command {

namespace {

constexpr std::size_t kWidth = 80;
constexpr unsigned long kLastErrorNumber = 133;

/// @return the text in lines of that width, each behind an indentation.
std::string wrapped(const std::string& aText, const std::string& aIndentation) {
    std::string lText;
    std::string lLine = aIndentation;
    std::string_view lRest = aText;
    while (!lRest.empty()) {
        const std::size_t lEnd = std::min(lRest.find(' '), lRest.size());
        const std::string_view lWord = lRest.substr(0, lEnd);
        if (lLine.size() + 1 + lWord.size() > kWidth && lLine.size() > aIndentation.size()) {
            lText += lLine + "\n";
            lLine = aIndentation;
        }
        lLine += (lLine.size() > aIndentation.size() ? " " : "") + std::string(lWord);
        lRest.remove_prefix(std::min(lEnd + 1, lRest.size()));
    }
    return lText + lLine + "\n";
}

std::string textOf(const StatusCode& aCode) {
    std::string lText = aCode.name + " = " + std::to_string(aCode.number) + " (" + aCode.header +
                        ")\n" + wrapped(aCode.meaning, "  ") +
                        wrapped("What to do: " + aCode.toDo, "  ");
    for (const Giver& lGiver : aCode.givers) {
        lText += wrapped(lGiver.function + ": " + lGiver.why, "  ");
    }
    return lText;
}

std::string momentOf(const KnownLine& aLine) {
    if (aLine.when == "failure") {
        return "always, for a failure";
    }
    return aLine.when == "notice" ? "always" : "from " + aLine.when + " on";
}

std::string textOf(const KnownLine& aLine) {
    std::string lFrom;
    for (const std::string& lSource : aLine.from) {
        lFrom += (lFrom.empty() ? "" : ", ") + lSource;
    }
    return aLine.format + "\n" + wrapped(aLine.why, "  ") +
           wrapped("What to do: " + aLine.toDo, "  ") +
           wrapped("Written " + momentOf(aLine) + ", by " + lFrom + ".", "  ");
}

std::string explainCode(const std::string& aWord) {
    std::string lText;
    const auto lNumber = toNumber(aWord, 0, 0xFFFFFFFFUL);
    for (const StatusCode& lCode : allStatusCodes()) {
        if (lCode.name == aWord || lCode.number == lNumber) {
            lText += textOf(lCode);
        }
    }
    if (lNumber && *lNumber > 0 && *lNumber <= kLastErrorNumber) {
        lText += aWord + " is no status code; as an error number of the system: " +
                 std::strerror(static_cast<int>(*lNumber)) + "\n";
    }
    return lText;
}

}  // namespace

int explain(const std::vector<std::string>& aWords) {
    std::string lAll;
    for (const std::string& lWord : aWords) {
        lAll += (lAll.empty() ? "" : " ") + lWord;
    }
    std::string lText = explainCode(std::string(trimmed(lAll)));
    if (lText.empty()) {
        for (const KnownLine& lLine : linesLike(lAll, allLines())) {
            lText += textOf(lLine);
        }
    }
    if (lText.empty()) {
        fail("'" + lAll +
             "' is no status code and no line of the library; perhaps the application's");
    }
    Output lOutput;
    lOutput.write(lText);
    lOutput.flush();
    return kDone;
}

std::string levelsText() {
    const std::vector<KnownLine> lLines = allLines();
    std::string lText =
        "At level 0 a device writes failures, and that clients come and go. Each level adds:\n";
    for (int lLevel = 1; lLevel <= 9; ++lLevel) {
        const std::string lWhen = "level " + std::to_string(lLevel);
        std::string lAdded;
        for (const KnownLine& lLine : lLines) {
            if (lLine.when == lWhen) {
                lAdded += "  " + lLine.format + "\n";
            }
        }
        lText +=
            "level " + std::to_string(lLevel) + (lAdded.empty() ? ": nothing\n" : ":\n") + lAdded;
    }
    return lText +
           "An application adds lines of its own. osx explain LINE says what a line means.\n";
}

}  // namespace command
