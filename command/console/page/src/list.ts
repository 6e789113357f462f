// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { setAttribute } from "./dom";
import type { Feed, Row } from "./feed";
import { RowView } from "./rows";

/** Rows above and below the window that are made, too, so that scrolling shows no empty space. */
const kSpare = 12;
/** So near to an end of the rows, more are asked for. */
const kNear = 100;

/** A finger that moves so far drags the lines. */
const kDragged = 8;

export interface ListListener {
    /** The reader left the newest row, or came back to it. */
    left(): void;
    returned(): void;
    selected(row: Row | null): void;
    /** The first row in the window changed. */
    scrolled(first: Row | undefined): void;
}

/** Shows those of the feed's rows that are in the window. */
export class List {
    private readonly views: RowView[] = [];
    private rowHeight = 20;
    private isDrawn = true;
    /** Where the window was last, which tells a reader's scrolling from that of the rows. */
    private lastTop = 0;
    private touchedAt = 0;
    private selected: Row | null = null;
    private sought = "";

    constructor(
        private readonly window: HTMLElement,
        private readonly space: HTMLElement,
        private readonly feed: Feed,
        private readonly listener: ListListener,
    ) {
        window.addEventListener("scroll", () => this.onScroll(), { passive: true });
        window.addEventListener("wheel", (event) => this.onWheel(event), { passive: true });
        window.addEventListener("touchstart", (event) => this.onTouch(event), { passive: true });
        window.addEventListener("touchmove", (event) => this.onDrag(event), { passive: true });
        window.addEventListener("keydown", (event) => this.onKey(event));
        // The row under the pointer may be another one when the button is let go.
        window.addEventListener("mousedown", (event) => this.onPress(event));
        new ResizeObserver(() => this.resize()).observe(window);
        this.resize();
    }

    /** Marks a text in each line. */
    mark(sought: string): void {
        this.sought = sought;
        this.draw();
    }

    moved(rows: number): void {
        if (!this.feed.isFollowing && rows !== 0) {
            this.setSpace();
            this.window.scrollTop += rows * this.rowHeight;
        }
        this.draw();
    }

    replaced(place: "first" | "last"): void {
        this.select(null);
        this.setSpace();
        this.window.scrollTop = place === "first" ? 0 : this.window.scrollHeight;
        this.draw();
    }

    repaint(): void {
        for (const view of this.views) {
            view.repaint();
        }
        this.draw();
    }

    lastSeen(): Row | undefined {
        const end = Math.floor((this.window.scrollTop + this.window.clientHeight) / this.rowHeight);
        return this.feed.rows[Math.min(end, this.feed.rows.length) - 1];
    }

    select(row: Row | null): void {
        if (row !== this.selected) {
            this.selected = row;
            this.listener.selected(row);
            this.draw();
        }
    }

    private resize(): void {
        const height = getComputedStyle(this.window).getPropertyValue("--row-height");
        this.rowHeight = Number.parseFloat(height) || 20;
        const wanted = Math.ceil(this.window.clientHeight / this.rowHeight) + 2 * kSpare;
        while (this.views.length < wanted) {
            const view = new RowView(`row-${this.views.length}`);
            view.element.hidden = true;
            this.views.push(view);
            this.space.append(view.element);
        }
        for (const view of this.views.splice(wanted)) {
            view.element.remove();
        }
        this.draw();
        this.keepSelected();
    }

    /** A window that gets smaller, as for the whole of a line, still shows the row it is about. */
    private keepSelected(): void {
        const index = this.selected === null ? -1 : this.feed.rows.indexOf(this.selected);
        if (index >= 0) {
            this.bringIntoView(index);
        }
    }

    private setSpace(): void {
        this.space.style.height = `${this.feed.rows.length * this.rowHeight}px`;
    }

    /** Draws once before the browser's next picture, however much came until then. */
    private draw(): void {
        if (this.isDrawn) {
            this.isDrawn = false;
            requestAnimationFrame(() => {
                this.isDrawn = true;
                this.drawNow();
            });
        }
    }

    private drawNow(): void {
        const { rows, isFollowing } = this.feed;
        this.setSpace();
        if (isFollowing) {
            this.window.scrollTop = this.window.scrollHeight;
        }
        this.lastTop = this.window.scrollTop;
        const top = Math.floor(this.window.scrollTop / this.rowHeight);
        const first = Math.max(0, Math.min(top - kSpare, rows.length - this.views.length));
        this.views.forEach((_, offset) => {
            this.place(first + offset);
        });
        this.showActive(first);
        this.listener.scrolled(rows[top]);
        this.fetchNear(top);
    }

    /** A row keeps its element while the list scrolls by, so that most elements stay as they are. */
    private viewOf(index: number): RowView | undefined {
        return this.views[index % this.views.length];
    }

    private place(index: number): void {
        const view = this.viewOf(index);
        const row = this.feed.rows[index];
        if (view === undefined) {
            return;
        }
        view.element.hidden = row === undefined;
        if (row === undefined) {
            return;
        }
        view.show(row, this.sought);
        view.element.style.transform = `translateY(${index * this.rowHeight}px)`;
        setAttribute(view.element, "aria-posinset", String(index + 1));
        setAttribute(view.element, "aria-setsize", String(this.feed.rows.length));
        setAttribute(view.element, "aria-selected", String(row === this.selected));
    }

    private showActive(first: number): void {
        const index = this.selected === null ? -1 : this.feed.rows.indexOf(this.selected, first);
        const view = index < first + this.views.length ? this.viewOf(index) : undefined;
        if (index >= 0 && view !== undefined) {
            setAttribute(this.window, "aria-activedescendant", view.element.id);
        } else {
            this.window.removeAttribute("aria-activedescendant");
        }
    }

    private fetchNear(top: number): void {
        const isFull = this.feed.rows.length > this.views.length;
        if (top < kNear && !(this.feed.isFollowing && isFull)) {
            void this.feed.older();
        }
        if (this.feed.isFollowing) {
            return;
        }
        const bottom = top + this.window.clientHeight / this.rowHeight;
        if (bottom > this.feed.rows.length - kNear) {
            void this.feed.newer();
        }
    }

    private distanceToEnd(): number {
        const { scrollHeight, scrollTop, clientHeight } = this.window;
        return scrollHeight - scrollTop - clientHeight;
    }

    private onScroll(): void {
        const isDownwards = this.window.scrollTop > this.lastTop;
        const isAtEnd = isDownwards && this.distanceToEnd() < this.rowHeight;
        this.lastTop = this.window.scrollTop;
        if (this.feed.isFollowing && this.distanceToEnd() > 2 * this.rowHeight) {
            this.listener.left();
        } else if (!this.feed.isFollowing && isAtEnd && this.feed.isAtNewest) {
            this.listener.returned();
        }
        this.draw();
    }

    private onWheel(event: WheelEvent): void {
        if (event.deltaY < 0 && this.window.scrollTop > 0) {
            this.listener.left();
        }
    }

    private onTouch(event: TouchEvent): void {
        this.touchedAt = event.touches[0]?.clientY ?? 0;
    }

    private onDrag(event: TouchEvent): void {
        const at = event.touches[0]?.clientY ?? 0;
        if (at > this.touchedAt + kDragged && this.window.scrollTop > 0) {
            this.listener.left();
        }
    }

    private onPress(event: Event): void {
        const target = event.target instanceof Element ? event.target.closest(".row") : null;
        const view = this.views.find(({ element }) => element === target);
        const place = view?.element.getAttribute("aria-posinset");
        if (place) {
            this.select(this.feed.rows[Number(place) - 1] ?? null);
        }
    }

    private onKey(event: KeyboardEvent): void {
        const page = Math.max(1, Math.floor(this.window.clientHeight / this.rowHeight) - 1);
        const steps: Record<string, number> = {
            ArrowUp: -1,
            ArrowDown: 1,
            PageUp: -page,
            PageDown: page,
            Home: -this.feed.rows.length,
        };
        const step = steps[event.key];
        if (step !== undefined && !event.ctrlKey && !event.altKey && !event.metaKey) {
            event.preventDefault();
            this.step(step);
        }
    }

    /** Selects another row, from the one that is selected, or from the last one that is seen. */
    private step(by: number): void {
        const { rows } = this.feed;
        const from = this.selected ?? this.lastSeen();
        const index = Math.max(0, Math.min(rows.length - 1, (from ? rows.indexOf(from) : 0) + by));
        if (by < 0) {
            this.listener.left();
        }
        this.select(rows[index] ?? null);
        this.bringIntoView(index);
    }

    private bringIntoView(index: number): void {
        const { scrollTop, clientHeight } = this.window;
        const top = index * this.rowHeight;
        if (top < scrollTop) {
            this.window.scrollTop = top;
        } else if (top + this.rowHeight > scrollTop + clientHeight) {
            this.window.scrollTop = top + this.rowHeight - clientHeight;
        }
        this.lastTop = this.window.scrollTop;
    }
}
