// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { byId } from "./dom";
import * as format from "./format";

/** Asks for the time to jump to. */
export class TimeDialog {
    private readonly dialog = byId("time-dialog", HTMLDialogElement);
    private readonly field = byId("time", HTMLInputElement);

    constructor(private readonly jump: (at: number) => void) {
        byId("time-close", HTMLButtonElement).addEventListener("click", () => this.dialog.close());
        byId("time-form", HTMLFormElement).addEventListener("submit", (event) => {
            event.preventDefault();
            this.go();
        });
        for (const button of this.dialog.querySelectorAll<HTMLButtonElement>("[data-ago]")) {
            const ago = Number(button.dataset.ago) * 1000;
            button.addEventListener("click", () => {
                this.field.value = format.forField(Date.now() - ago);
                this.go();
            });
        }
    }

    open(at: number): void {
        this.field.value = format.forField(at);
        this.dialog.showModal();
    }

    private go(): void {
        const at = new Date(this.field.value).getTime();
        if (!Number.isNaN(at)) {
            this.dialog.close();
            this.jump(at);
        }
    }
}
