// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { colourOf } from "./colours";
import { type Entry, isMark, type Mark } from "./contract";
import { make } from "./dom";
import { isGap, type Row } from "./feed";
import * as format from "./format";
import { partsOf, weightIn } from "./words";

/** More of a line has no room in any window; the whole of it is shown below the list. */
const kLongestText = 600;

export function textOf(row: Row): string {
    if (isGap(row)) {
        const what = row.gap === null ? "More lines" : format.counted(row.gap, "line", "lines");
        return `${what} came faster than can be shown. Select to read the history here.`;
    }
    return isMark(row) ? textOfMark(row) : row.line;
}

function textOfMark(mark: Mark): string {
    const count = format.count(mark.count);
    switch (mark.mark) {
        case "connected":
            return `connected to ${mark.text}`;
        case "disconnected":
            return `connection ended: ${mark.text}`;
        case "unreachable":
            return `not reachable, trying on: ${mark.text}`;
        case "lines-lost":
            return `${count} lines lost here: the device had no more room for them`;
        case "cut":
            return `${count} bytes left out here`;
        case "record-gap":
            return `${count} entries are missing in the record here: ${mark.text}`;
        default:
            return [mark.mark, mark.text].filter((text) => text !== "").join(": ");
    }
}

function classOf(row: Row): string {
    if (isGap(row)) {
        return "row gap";
    }
    if (!isMark(row)) {
        const weight = weightIn(row.line);
        return weight === null ? "row" : `row ${weight}`;
    }
    const isLoss = ["lines-lost", "cut", "oversize", "record-gap"].includes(row.mark);
    return isLoss ? "row mark loss" : "row mark";
}

/** An element of the list; it shows another row when the list scrolls. */
export class RowView {
    readonly element: HTMLDivElement;
    private readonly time = make("span", { class: "time" });
    private readonly device = make("span", { class: "device" });
    private readonly text = make("span", { class: "text" });
    private row: Row | null = null;
    private sought = "";

    constructor(id: string) {
        this.element = make(
            "div",
            { class: "row", attributes: { role: "option", id } },
            this.time,
            this.device,
            this.text,
        );
    }

    show(row: Row, sought: string): void {
        if (row === this.row && sought === this.sought) {
            return;
        }
        this.row = row;
        this.sought = sought;
        this.element.className = classOf(row);
        this.time.textContent = isGap(row) ? "" : format.timeWithMs(row.at);
        this.showDevice(isGap(row) ? null : row);
        this.showText(row);
    }

    /** The colours have changed. */
    repaint(): void {
        this.row = null;
    }

    private showDevice(entry: Entry | null): void {
        this.device.textContent = entry?.device ?? "";
        this.device.style.color = entry === null ? "" : colourOf(entry.device);
    }

    private showText(row: Row): void {
        const text = textOf(row).slice(0, kLongestText);
        if (isGap(row) || isMark(row)) {
            this.text.textContent = text;
            return;
        }
        const parts = partsOf(text, this.sought).map((part) =>
            part.classes.length === 0
                ? document.createTextNode(part.text)
                : make("span", { class: part.classes.join(" "), text: part.text }),
        );
        this.text.replaceChildren(...parts);
    }
}
