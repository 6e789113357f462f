// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import type { Device } from "./contract";
import { byId, make } from "./dom";
import { setLevel } from "./server";

const kApplication = "lines of the application, if it has such";
/** What lines each level adds; a level has those of the lower ones, too. */
const kAdded = [
    "failures, and clients that come and go",
    "setting up",
    kApplication,
    "what is created and destroyed",
    "operations of devices",
    "operations of devices, in more detail",
    kApplication,
    kApplication,
    kApplication,
    "every event: very many lines",
];

/** Asks which level a device is to have, sends it once that is confirmed, and shows the answer. */
export class LevelDialog {
    private readonly dialog = byId("level-dialog", HTMLDialogElement);
    private readonly title = byId("level-title", HTMLElement);
    private readonly choices = byId("level-choices", HTMLElement);
    private readonly answer = byId("level-answer", HTMLElement);
    private readonly set = byId("level-set", HTMLButtonElement);
    private readonly close = byId("level-close", HTMLButtonElement);
    private device = "";
    private request = new AbortController();

    constructor() {
        this.makeChoices();
        this.choices.addEventListener("change", () => this.offer());
        this.dialog.addEventListener("close", () => this.request.abort());
        this.close.addEventListener("click", () => this.dialog.close());
        byId("level-form", HTMLFormElement).addEventListener("submit", (event) => {
            event.preventDefault();
            void this.send();
        });
    }

    open(device: Device): void {
        this.device = device.name;
        this.title.textContent = `Debug level of ${device.name}`;
        this.choices.querySelectorAll("input").forEach((input, level) => {
            input.checked = level === device.level;
        });
        this.say("", "");
        this.offer();
        this.dialog.showModal();
    }

    private makeChoices(): void {
        const labels = kAdded.map((text, level) => {
            const value = String(level);
            const input = make("input", { attributes: { type: "radio", name: "level", value } });
            return make("label", {}, input, make("b", { text: value }), make("span", { text }));
        });
        this.choices.append(...labels);
    }

    private chosen(): string | undefined {
        return this.choices.querySelector<HTMLInputElement>("input:checked")?.value;
    }

    private offer(): void {
        const level = this.chosen();
        this.set.disabled = level === undefined;
        this.set.textContent = level === undefined ? "Set level" : `Set level ${level}`;
    }

    private say(kind: string, text: string): void {
        this.answer.className = kind;
        this.answer.textContent = text;
    }

    private async send(): Promise<void> {
        const level = Number(this.chosen());
        const device = this.device;
        this.request.abort();
        this.request = new AbortController();
        const { signal } = this.request;
        this.set.disabled = true;
        this.say("waiting", `Waiting for the answer of ${device}, up to 10 s.`);
        try {
            const answer = await setLevel(device, level, signal);
            if (answer.confirmed) {
                this.say("good", `${device} has level ${level}, and says: ${answer.line}`);
            } else {
                this.say("bad", `Not confirmed: ${answer.why}`);
            }
        } catch (error) {
            if (!signal.aborted) {
                this.say("bad", error instanceof Error ? error.message : "The server is away.");
            }
        } finally {
            this.offer();
        }
    }
}
