// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { colourOf } from "./colours";
import type { Device } from "./contract";
import { make, setAttribute, setText } from "./dom";
import * as format from "./format";

export interface DevicesListener {
    /** The devices that are to be shown; none for all. */
    chosen(devices: Set<string>): void;
    levelWanted(device: Device): void;
}

/** The list of devices: what each is about, and which are shown. */
export class DeviceList {
    private readonly items = new Map<string, Item>();
    private readonly groups = new Map<string, HTMLButtonElement>();
    private devices: Device[] = [];
    private chosen = new Set<string>();

    constructor(
        private readonly list: HTMLElement,
        private readonly groupBar: HTMLElement,
        private readonly find: HTMLInputElement,
        private readonly listener: DevicesListener,
    ) {
        find.addEventListener("input", () => this.showFound());
    }

    show(devices: Device[], now: number): void {
        this.devices = devices;
        this.forgetOthers();
        for (const device of devices) {
            this.itemOf(device).show(device, now);
        }
        this.showGroups();
        this.showFound();
    }

    choose(devices: ReadonlySet<string>): void {
        this.chosen = new Set(devices);
        for (const [name, item] of this.items) {
            item.choose(this.chosen.has(name));
        }
        this.showGroups();
    }

    repaint(): void {
        for (const item of this.items.values()) {
            item.repaint();
        }
    }

    private itemOf(device: Device): Item {
        const known = this.items.get(device.name);
        if (known !== undefined) {
            return known;
        }
        const item = new Item(
            device,
            () => this.toggle([device.name]),
            (latest) => this.listener.levelWanted(latest),
        );
        item.choose(this.chosen.has(device.name));
        this.items.set(device.name, item);
        this.list.append(item.element);
        return item;
    }

    private forgetOthers(): void {
        const names = new Set(this.devices.map(({ name }) => name));
        for (const [name, item] of this.items) {
            if (!names.has(name)) {
                item.element.remove();
                this.items.delete(name);
            }
        }
    }

    /** Adds devices to those that are shown, or takes them away if all of them are there. */
    private toggle(names: string[]): void {
        const isThere = names.every((name) => this.chosen.has(name));
        const chosen = new Set(this.chosen);
        for (const name of names) {
            if (isThere) {
                chosen.delete(name);
            } else {
                chosen.add(name);
            }
        }
        this.listener.chosen(chosen);
    }

    private membersOf(group: string): string[] {
        return this.devices.filter(({ groups }) => groups.includes(group)).map(({ name }) => name);
    }

    private showGroups(): void {
        const names = [...new Set(this.devices.flatMap(({ groups }) => groups))].sort();
        if (names.join("\n") !== [...this.groups.keys()].join("\n")) {
            this.makeGroups(names);
        }
        for (const [name, button] of this.groups) {
            const isChosen = this.membersOf(name).every((member) => this.chosen.has(member));
            setAttribute(button, "aria-pressed", String(isChosen));
        }
        setAttribute(this.groupBar, "data-any", String(this.chosen.size !== 0));
    }

    private makeGroups(names: string[]): void {
        this.groups.clear();
        for (const name of names) {
            const click = () => this.toggle(this.membersOf(name));
            this.groups.set(name, make("button", { class: "chip", text: name, on: { click } }));
        }
        const click = () => this.listener.chosen(new Set());
        const all = make("button", { class: "chip all", text: "Show all", on: { click } });
        this.groupBar.replaceChildren(...this.groups.values(), all);
    }

    private showFound(): void {
        const sought = this.find.value.trim().toLowerCase();
        for (const [name, item] of this.items) {
            item.element.hidden = !name.toLowerCase().includes(sought);
        }
    }
}

/** One device of the list. */
class Item {
    readonly element: HTMLLIElement;
    private readonly choice: HTMLButtonElement;
    private readonly swatch = make("span", { class: "swatch" });
    private readonly rate = make("span", { class: "rate" });
    private readonly state = make("span", { class: "state" });
    private readonly lost = make("span", { class: "lost" });
    private readonly level: HTMLButtonElement;

    constructor(
        private device: Device,
        choose: () => void,
        wantLevel: (device: Device) => void,
    ) {
        const name = make("span", { class: "name", text: device.name });
        this.choice = make(
            "button",
            { class: "choice", on: { click: choose } },
            this.swatch,
            name,
            this.rate,
            make("span", { class: "more" }, this.state, this.lost),
        );
        const click = () => wantLevel(this.device);
        this.level = make("button", { class: "level", on: { click } });
        this.element = make("li", { class: "device" }, this.choice, this.level);
        this.choose(false);
        this.repaint();
    }

    show(device: Device, now: number): void {
        this.device = device;
        const isConnected = device.state === "connected";
        setAttribute(this.element, "data-state", isConnected ? "connected" : "connecting");
        setText(this.rate, isConnected ? `${format.rate(device.rate)}/s` : "");
        setText(this.state, stateText(device, now));
        setText(this.lost, device.lost === 0 ? "" : `${format.count(device.lost)} lost`);
        setText(this.level, `Level ${device.level ?? "?"}`);
        setAttribute(
            this.level,
            "aria-label",
            `Level ${device.level ?? "?"}: set that of ${device.name}`,
        );
        setAttribute(this.choice, "title", `${device.host}:${device.port}\n${device.why}`);
    }

    choose(isChosen: boolean): void {
        setAttribute(this.choice, "aria-pressed", String(isChosen));
    }

    repaint(): void {
        this.swatch.style.setProperty("--colour", colourOf(this.device.name));
    }
}

function stateText(device: Device, now: number): string {
    const time = format.duration(now - device.since);
    return device.state === "connected" ? `connected ${time}` : device.why.replace(/^[^:]*: /, "");
}
