// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/** The words that a filter offers, and how grave each is. */
export const kWords = [
    { word: "error", weight: "grave" },
    { word: "fail", weight: "grave" },
    { word: "unable", weight: "grave" },
    { word: "assert", weight: "grave" },
    { word: "warning", weight: "light" },
    { word: "lost", weight: "light" },
] as const;

export type Weight = (typeof kWords)[number]["weight"];

const kAny = new RegExp(kWords.map(({ word }) => word).join("|"), "gi");

/** A part of a line, and the classes it is shown with. */
export interface Part {
    text: string;
    classes: string[];
}

interface Range {
    start: number;
    end: number;
    class: string;
}

function weightOf(word: string): Weight {
    const lower = word.toLowerCase();
    return kWords.find((each) => each.word === lower)?.weight ?? "light";
}

/** @return the gravest weight of the words in a text. */
export function weightIn(text: string): Weight | null {
    const weights = (text.match(kAny) ?? []).map(weightOf);
    return weights.includes("grave") ? "grave" : (weights[0] ?? null);
}

function ranges(text: string, pattern: RegExp, classOf: (found: string) => string): Range[] {
    return [...text.matchAll(pattern)].map((match) => ({
        start: match.index,
        end: match.index + match[0].length,
        class: classOf(match[0]),
    }));
}

function literally(text: string): RegExp {
    return new RegExp(text.replace(/[\\^$.*+?()[\]{}|]/g, "\\$&"), "gi");
}

/** Cuts a text at its words, and at the text that was looked for. */
export function partsOf(text: string, sought: string): Part[] {
    const all = ranges(text, kAny, weightOf);
    if (sought !== "") {
        all.push(...ranges(text, literally(sought), () => "found"));
    }
    const cuts = new Set([0, text.length, ...all.flatMap(({ start, end }) => [start, end])]);
    const sorted = [...cuts].sort((one, other) => one - other);
    return sorted.slice(1).map((end, index) => {
        const start = sorted[index] ?? 0;
        const around = all.filter((range) => range.start <= start && end <= range.end);
        return { text: text.slice(start, end), classes: around.map((range) => range.class) };
    });
}
