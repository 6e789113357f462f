// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { byId, make } from "./dom";
import type { Filter } from "./filter";
import { kWords } from "./words";

/** While a person types, the server is not asked for each letter. */
const kPauseMs = 250;

/** The field for a search, and the words that can be filtered for. */
export class Search {
    private readonly field = byId("search", HTMLInputElement);
    private readonly expression = byId("expression", HTMLButtonElement);
    private readonly words = new Map<string, HTMLButtonElement>();
    private chosen = new Set<string>();
    private timer = 0;

    constructor(
        private readonly searched: (text: string, isExpression: boolean) => void,
        private readonly wordsChosen: (words: Set<string>) => void,
    ) {
        this.field.addEventListener("input", () => this.tellSoon(kPauseMs));
        this.field.addEventListener("change", () => this.tellSoon(0));
        this.expression.addEventListener("click", () => {
            this.press(this.expression, !this.isExpression());
            this.tellSoon(0);
        });
        for (const { word, weight } of kWords) {
            const click = () => this.toggle(word);
            const button = make("button", { class: `chip ${weight}`, text: word, on: { click } });
            this.words.set(word, button);
        }
        byId("words", HTMLElement).append(...this.words.values());
    }

    show(filter: Filter): void {
        if (this.field.value !== filter.search) {
            this.field.value = filter.search;
        }
        this.press(this.expression, filter.isExpression);
        this.chosen = new Set(filter.words);
        for (const [word, button] of this.words) {
            this.press(button, this.chosen.has(word));
        }
    }

    focus(): void {
        this.field.focus();
        this.field.select();
    }

    complain(text: string): void {
        this.field.setAttribute("aria-invalid", String(text !== ""));
    }

    private press(button: HTMLElement, isPressed: boolean): void {
        button.setAttribute("aria-pressed", String(isPressed));
    }

    private isExpression(): boolean {
        return this.expression.getAttribute("aria-pressed") === "true";
    }

    private tellSoon(ms: number): void {
        window.clearTimeout(this.timer);
        this.timer = window.setTimeout(
            () => this.searched(this.field.value, this.isExpression()),
            ms,
        );
    }

    private toggle(word: string): void {
        if (!this.chosen.delete(word)) {
            this.chosen.add(word);
        }
        this.wordsChosen(this.chosen);
    }
}
