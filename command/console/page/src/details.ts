// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { byId } from "./dom";
import { isGap, type Row } from "./feed";
import * as format from "./format";
import { textOf } from "./rows";

/** The whole of the line that is selected. */
export class Details {
    private readonly panel = byId("details", HTMLElement);
    private readonly head = byId("details-head", HTMLElement);
    private readonly text = byId("details-text", HTMLElement);

    constructor(close: () => void) {
        byId("details-close", HTMLButtonElement).addEventListener("click", close);
    }

    show(row: Row | null): void {
        this.panel.hidden = row === null || isGap(row);
        if (row !== null && !isGap(row)) {
            const time = `${format.date(row.at)}, ${format.timeWithMs(row.at)}`;
            this.head.textContent = `${row.device}, ${time}`;
            this.text.textContent = textOf(row);
        }
    }
}
