// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { Charts } from "./charts";
import { onTheme } from "./colours";
import type { Device } from "./contract";
import { Details } from "./details";
import { DeviceList } from "./devices";
import { byId, setText } from "./dom";
import { Feed, isGap, type Row } from "./feed";
import { Filter } from "./filter";
import * as format from "./format";
import { LevelDialog } from "./levelDialog";
import { List } from "./list";
import { Search } from "./search";
import { Refusal, state } from "./server";
import { Stream } from "./stream";
import { TimeDialog } from "./timeDialog";

/** What the page is made of, and what each part tells the others. */
export class App {
    private filter = Filter.fromHash(location.hash);
    private lostSince = 0;

    private readonly followButton = byId("follow", HTMLButtonElement);
    private readonly lines = byId("lines", HTMLElement);
    private readonly notice = byId("notice", HTMLElement);
    private readonly connection = byId("connection", HTMLElement);

    private readonly details = new Details(() => this.list.select(null));
    private readonly levelDialog = new LevelDialog();
    private readonly feed = new Feed(this.filter, {
        moved: (rows) => this.list.moved(rows),
        replaced: (place) => this.list.replaced(place),
        status: () => this.showStatus(),
        trouble: (text) => this.say(text),
    });
    private readonly list = new List(this.lines, byId("space", HTMLElement), this.feed, {
        left: () => this.pause(),
        returned: () => this.feed.follow(),
        selected: (row) => this.select(row),
        scrolled: (first) => this.showDate(first),
    });
    private readonly charts = new Charts(
        byId("charts", HTMLElement),
        byId("range", HTMLSelectElement),
        (at) => this.jump(at),
    );
    private readonly timeDialog = new TimeDialog((at) => this.jump(at));
    private readonly deviceList = new DeviceList(
        byId("devices", HTMLElement),
        byId("groups", HTMLElement),
        byId("find", HTMLInputElement),
        {
            chosen: (devices) => this.setFilter(this.filter.withDevices(devices)),
            levelWanted: (device) => this.levelDialog.open(device),
        },
    );
    private readonly search = new Search(
        (text, isExpression) => this.setFilter(this.filter.withSearch(text, isExpression)),
        (words) => this.setFilter(this.filter.withWords(words)),
    );
    private readonly stream = new Stream({
        opened: () => void this.connected(),
        lost: () => this.disconnected(),
        lines: (lines, newest) => this.feed.take(lines, newest),
        devices: ({ devices, now }) => this.showDevices(devices, now),
    });

    start(): void {
        this.bindButtons();
        this.bindKeys();
        onTheme(() => this.repaint());
        window.addEventListener("hashchange", () => this.setFilter(Filter.fromHash(location.hash)));
        this.showFilter();
        this.showStatus();
        this.stream.open();
    }

    private async connected(): Promise<void> {
        try {
            const answer = await state();
            setText(byId("version", HTMLElement), answer.version);
            this.lostSince = 0;
            this.connection.hidden = true;
            this.showDevices(answer.devices, answer.now);
            await Promise.all([this.feed.connected(answer.newest), this.charts.restart()]);
        } catch (error) {
            if (error instanceof Refusal) {
                this.say(error.message);
            }
            this.stream.again();
        }
    }

    private disconnected(): void {
        this.feed.disconnected();
        this.lostSince ||= Date.now();
        this.connection.hidden = false;
        const since = format.timeOfDay(this.lostSince);
        setText(this.connection, `No connection to the console since ${since}. Trying on.`);
    }

    private showDevices(devices: Device[], now: number): void {
        this.deviceList.show(devices, now);
        this.charts.setDevices(devices, now);
        const connected = devices.filter((device) => device.state === "connected").length;
        const rate = devices.reduce((sum, device) => sum + device.rate, 0);
        const lost = devices.reduce((sum, device) => sum + device.lost, 0);
        setText(
            byId("summary", HTMLElement),
            `${connected} of ${format.counted(devices.length, "device", "devices")} connected, ` +
                `${format.rate(rate)} lines/s, ${format.count(lost)} lost`,
        );
        setText(byId("device-count", HTMLElement), `${connected}/${devices.length}`);
    }

    private setFilter(filter: Filter): void {
        if (filter.toHash() === this.filter.toHash()) {
            return;
        }
        this.filter = filter;
        history.replaceState(null, "", `#${filter.toHash()}`);
        this.say("");
        this.showFilter();
        void this.feed.open(filter);
    }

    private showFilter(): void {
        this.search.show(this.filter);
        this.deviceList.choose(this.filter.devices);
        this.charts.choose(this.filter.devices);
        this.list.mark(this.filter.isExpression ? "" : this.filter.search);
    }

    private jump(at: number): void {
        this.say("");
        void this.feed.jump(at);
    }

    private pause(): void {
        void this.feed.pause(this.list.lastSeen()?.id ?? 0);
    }

    private toggleFollow(): void {
        if (this.feed.isFollowing) {
            this.pause();
        } else {
            this.say("");
            this.feed.follow();
        }
    }

    private select(row: Row | null): void {
        this.details.show(row);
        if (row === null) {
            return;
        }
        this.pause();
        if (isGap(row)) {
            this.list.select(null);
        }
    }

    private showDate(first: Row | undefined): void {
        setText(byId("date", HTMLElement), first === undefined ? "" : format.date(first.at));
        byId("empty", HTMLElement).hidden = first !== undefined;
    }

    private showStatus(): void {
        const { isFollowing, unseen } = this.feed;
        this.followButton.setAttribute("aria-pressed", String(isFollowing));
        const news = unseen === 0 ? "" : `, ${format.count(unseen)} new`;
        setText(this.followButton, isFollowing ? "Following" : `Paused${news}`);
    }

    private say(text: string): void {
        this.notice.hidden = text === "";
        setText(this.notice, text);
        this.search.complain(text);
    }

    private repaint(): void {
        this.list.repaint();
        this.deviceList.repaint();
        this.charts.show();
    }

    private bindButtons(): void {
        const onClick = (id: string, listener: () => void) =>
            byId(id, HTMLButtonElement).addEventListener("click", listener);
        onClick("follow", () => this.toggleFollow());
        onClick("jump", () => this.openTime());
        onClick("help", () => this.openHelp());
        onClick("help-close", () => byId("help-dialog", HTMLDialogElement).close());
        onClick("drawer", () => this.openDrawer(!document.body.classList.contains("drawer-open")));
        byId("main", HTMLElement).addEventListener("click", () => this.openDrawer(false));
    }

    private openTime(): void {
        this.timeDialog.open(this.list.lastSeen()?.at ?? Date.now());
    }

    private openHelp(): void {
        byId("help-dialog", HTMLDialogElement).showModal();
    }

    /** On a narrow window, the devices lie over the lines. */
    private openDrawer(isOpen: boolean): void {
        document.body.classList.toggle("drawer-open", isOpen);
        byId("drawer", HTMLButtonElement).setAttribute("aria-expanded", String(isOpen));
    }

    private bindKeys(): void {
        const actions: Record<string, () => void> = {
            "/": () => this.search.focus(),
            " ": () => this.toggleFollow(),
            End: () => this.feed.follow(),
            g: () => this.openTime(),
            d: () => byId("find", HTMLInputElement).focus(),
            "?": () => this.openHelp(),
            Escape: () => {
                this.list.select(null);
                this.openDrawer(false);
            },
        };
        document.addEventListener("keydown", (event) => {
            const action = actions[event.key];
            if (action !== undefined && !isForField(event)) {
                event.preventDefault();
                action();
            }
        });
    }
}

/** Whether a key belongs to what has the focus, or to the browser. */
function isForField(event: KeyboardEvent): boolean {
    const { target } = event;
    if (event.ctrlKey || event.altKey || event.metaKey || !(target instanceof Element)) {
        return true;
    }
    const isButton = target.closest("button, select") !== null && event.key === " ";
    return isButton || target.closest("input, textarea, dialog") !== null;
}
