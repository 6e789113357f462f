// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/** Which entries are shown. The server applies it, so that live lines and history agree. */
export class Filter {
    constructor(
        readonly devices: ReadonlySet<string> = new Set(),
        readonly words: ReadonlySet<string> = new Set(),
        readonly search: string = "",
        readonly isExpression: boolean = false,
    ) {}

    get isEmpty(): boolean {
        return this.devices.size === 0 && this.words.size === 0 && this.search === "";
    }

    withDevices(devices: Iterable<string>): Filter {
        return new Filter(new Set(devices), this.words, this.search, this.isExpression);
    }

    withWords(words: Iterable<string>): Filter {
        return new Filter(this.devices, new Set(words), this.search, this.isExpression);
    }

    withSearch(search: string, isExpression: boolean): Filter {
        return new Filter(this.devices, this.words, search, isExpression);
    }

    query(): URLSearchParams {
        const query = new URLSearchParams();
        for (const device of this.devices) {
            query.append("device", device);
        }
        if (this.words.size !== 0) {
            query.set("words", [...this.words].join(","));
        }
        if (this.search !== "") {
            query.set("grep", this.isExpression ? this.search : expressionFor(this.search));
        }
        return query;
    }

    /** What the address keeps behind `#`, so that a view can be kept as a bookmark. */
    toHash(): string {
        const query = this.withSearch("", false).query();
        if (this.search !== "") {
            query.set(this.isExpression ? "grep" : "text", this.search);
        }
        return query.toString();
    }

    static fromHash(hash: string): Filter {
        const query = new URLSearchParams(hash.replace(/^#/, ""));
        const words = (query.get("words") ?? "").split(",").filter((word) => word !== "");
        const grep = query.get("grep");
        return new Filter(
            new Set(query.getAll("device")),
            new Set(words),
            grep ?? query.get("text") ?? "",
            grep !== null,
        );
    }
}

/** Longer ones the server refuses. */
const kLongestExpression = 200;

/** The text as an extended regular expression: in any case, unless it is too long for that. */
function expressionFor(text: string): string {
    const inAnyCase = [...text].map(anyCase).join("");
    return inAnyCase.length > kLongestExpression ? [...text].map(escaped).join("") : inAnyCase;
}

function anyCase(character: string): string {
    return /[a-z]/i.test(character)
        ? `[${character.toLowerCase()}${character.toUpperCase()}]`
        : escaped(character);
}

function escaped(character: string): string {
    return /[\\^$.*+?()[{|]/.test(character) ? `\\${character}` : character;
}
