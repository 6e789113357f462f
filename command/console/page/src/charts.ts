// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { Chart, type Picture, type Series, type Tick } from "./chart";
import type { Device, FigurePoint } from "./contract";
import * as format from "./format";
import { figures } from "./server";

/** The server makes a point each 10 s. */
const kStepMs = 10_000;

interface Point extends FigurePoint {
    /** Lines a second. */
    rate: number;
}

/** Lines a second, load and memory of the devices that are shown, over the latest minutes or hours. */
export class Charts {
    private readonly rate: Chart;
    private readonly load: Chart;
    private readonly memory: Chart;
    private points: Point[] = [];
    private devices: Device[] = [];
    private chosen: ReadonlySet<string> = new Set();
    private rangeMs = 900_000;
    /** Of the points that were read last. */
    private step = 1;
    private widestStep = kStepMs;
    private newest = 0;
    private isReading = false;
    /** The server's clock, against that of this machine. */
    private ahead = 0;

    constructor(place: HTMLElement, range: HTMLSelectElement, jump: (at: number) => void) {
        this.rate = new Chart("Lines a second", 1, format.brief, jump);
        this.load = new Chart("Load", 1, (value) => format.rate(value), jump);
        this.memory = new Chart("Memory used", 100, (value) => `${Math.round(value)} %`, jump);
        this.rate.caption.append(range);
        range.addEventListener("change", () => void this.restart(Number(range.value)));
        place.append(this.rate.element, this.load.element, this.memory.element);
        window.setInterval(() => void this.read(), kStepMs);
    }

    /** Begins anew: with another range, or another server. */
    async restart(rangeMs = this.rangeMs): Promise<void> {
        this.rangeMs = rangeMs;
        this.newest = 0;
        this.step = 1;
        this.widestStep = kStepMs;
        this.points = [];
        await this.read();
    }

    choose(devices: ReadonlySet<string>): void {
        this.chosen = devices;
        this.show();
    }

    setDevices(devices: Device[], now: number): void {
        this.devices = devices;
        this.ahead = now - Date.now();
        this.tell();
    }

    async read(): Promise<void> {
        if (this.isReading) {
            return;
        }
        this.isReading = true;
        try {
            const from = this.now() - this.rangeMs;
            const { step, points } = await figures(Math.max(from, this.newest + this.step));
            this.take(step, points);
            this.points = this.points.filter(({ at }) => at >= from);
            this.show();
        } catch {
            // The stream tells of a server that is away, and the next look comes soon.
        } finally {
            this.isReading = false;
        }
    }

    show(): void {
        const shown = this.points.filter(({ device }) => this.isShown(device));
        this.rate.show(this.picture(shown, ({ rate }) => rate, lossesIn(shown)));
        this.load.show(this.picture(shown, ({ load }) => load));
        this.memory.show(this.picture(shown, usedPart));
        this.tell();
    }

    private tell(): void {
        this.rate.tell(this.rateNow());
        this.load.tell(this.loadNow());
        this.memory.tell(this.memoryNow());
    }

    /** Where points are thinned, the last one is not whole yet, and comes again. */
    private take(step: number, points: FigurePoint[]): void {
        const end = step > kStepMs ? this.now() - step : Number.POSITIVE_INFINITY;
        this.step = step;
        this.widestStep = Math.max(this.widestStep, step);
        for (const point of points.filter(({ at }) => at <= end)) {
            this.newest = Math.max(this.newest, point.at);
            this.points.push({ ...point, rate: (point.lines * 1000) / step });
        }
    }

    private now(): number {
        return Date.now() + this.ahead;
    }

    private isShown(device: string): boolean {
        return this.chosen.size === 0 || this.chosen.has(device);
    }

    private picture(
        points: Point[],
        valueIn: (point: Point) => number | null,
        ticks: Tick[] = [],
    ): Picture {
        const series = new Map<string, Series>();
        for (const point of points) {
            const its = series.get(point.device) ?? { name: point.device, points: [] };
            its.points.push({ at: point.at, value: valueIn(point) });
            series.set(point.device, its);
        }
        const to = this.now();
        const from = to - this.rangeMs;
        return { from, to, step: this.widestStep, series: [...series.values()], ticks };
    }

    private shownDevices(): Device[] {
        return this.devices.filter(({ name }) => this.isShown(name));
    }

    private rateNow(): string {
        const sum = this.shownDevices().reduce((all, { rate }) => all + rate, 0);
        return this.devices.length === 0 ? "" : `${format.rate(sum)} in all`;
    }

    private loadNow(): string {
        const loads = this.shownDevices().flatMap(({ figures: its }) => (its ? [its.load] : []));
        return loads.length === 0 ? "" : `highest ${format.rate(Math.max(...loads))}`;
    }

    private memoryNow(): string {
        const free = this.shownDevices().flatMap(({ figures: its }) =>
            its ? [its.memoryFree] : [],
        );
        return free.length === 0 ? "" : `least free ${format.memory(Math.min(...free))}`;
    }
}

function usedPart({ memoryFree, memoryTotal }: Point): number | null {
    return memoryFree === null || !memoryTotal ? null : 100 * (1 - memoryFree / memoryTotal);
}

function lossesIn(points: Point[]): Tick[] {
    return points
        .filter(({ lost }) => lost > 0)
        .map(({ at, device, lost }) => ({ at, text: `${device}: ${format.count(lost)} lost` }));
}
