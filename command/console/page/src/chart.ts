// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { colour, colourOf } from "./colours";
import { make, setAttribute, setText } from "./dom";
import * as format from "./format";

export interface Series {
    name: string;
    /** In order of time; a gap in time, or a null, interrupts the line. */
    points: { at: number; value: number | null }[];
}

/** Something that happened at a time, such as a loss. */
export interface Tick {
    at: number;
    text: string;
}

export interface Picture {
    from: number;
    to: number;
    /** Points that are farther apart are not joined. */
    step: number;
    series: Series[];
    ticks: Tick[];
}

const kBottom = 16;
const kLeft = 44;
const kTop = 6;

/** A chart over time, on a canvas; a click tells the time that was meant. */
export class Chart {
    readonly element: HTMLElement;
    readonly caption = make("figcaption");
    private readonly canvas = make("canvas", { attributes: { role: "img" } });
    private readonly now = make("span", { class: "now" });
    private readonly tip = make("div", { class: "tip", attributes: { "aria-hidden": "true" } });
    private picture: Picture = { from: 0, to: 1, step: 1, series: [], ticks: [] };
    private most = 1;

    constructor(
        private readonly title: string,
        private readonly lowestMost: number,
        private readonly formatted: (value: number) => string,
        jump: (at: number) => void,
    ) {
        this.caption.append(title, this.now);
        this.element = make("figure", { class: "chart" }, this.caption, this.canvas, this.tip);
        this.canvas.addEventListener("pointermove", (event) => this.showTip(event.offsetX));
        this.canvas.addEventListener("pointerleave", () => this.tip.classList.remove("on"));
        this.canvas.addEventListener("click", (event) => jump(this.timeAt(event.offsetX)));
        new ResizeObserver(() => this.draw()).observe(this.canvas);
    }

    show(picture: Picture): void {
        this.picture = picture;
        this.tell(this.now.textContent);
        this.draw();
    }

    /** @param now what holds at the moment. */
    tell(now: string): void {
        setText(this.now, now);
        const losses = this.picture.ticks.length;
        const marks = losses === 0 ? "" : `, ${format.counted(losses, "loss", "losses")}`;
        setAttribute(
            this.canvas,
            "aria-label",
            `${this.title}: ${now || "no figures yet"}${marks}`,
        );
    }

    draw(): void {
        const { canvas } = this;
        const { clientWidth: width, clientHeight: height } = canvas;
        const scale = window.devicePixelRatio;
        canvas.width = Math.round(width * scale);
        canvas.height = Math.round(height * scale);
        const context = canvas.getContext("2d");
        if (context === null || width === 0) {
            return;
        }
        context.scale(scale, scale);
        this.most = this.highest();
        this.drawGrid(context, width, height);
        for (const series of this.picture.series) {
            this.drawSeries(context, series, width, height);
        }
        this.drawTicks(context, width, height);
    }

    /** A round number above all values. */
    private highest(): number {
        let most = this.lowestMost;
        for (const { points } of this.picture.series) {
            for (const { value } of points) {
                most = Math.max(most, value ?? 0);
            }
        }
        const unit = 10 ** Math.floor(Math.log10(most));
        return [1, 2, 5, 10].map((step) => step * unit).find((round) => round >= most) ?? most;
    }

    private x(at: number, width: number): number {
        const { from, to } = this.picture;
        return kLeft + ((at - from) / (to - from)) * (width - kLeft - 2);
    }

    private y(value: number, height: number): number {
        return kTop + (1 - value / this.most) * (height - kTop - kBottom);
    }

    private timeAt(x: number): number {
        const { from, to } = this.picture;
        const part = (x - kLeft) / (this.canvas.clientWidth - kLeft - 2);
        return from + Math.max(0, Math.min(1, part)) * (to - from);
    }

    private drawGrid(context: CanvasRenderingContext2D, width: number, height: number): void {
        context.strokeStyle = colour("rule");
        context.fillStyle = colour("faint");
        context.font = `11px ${getComputedStyle(document.body).fontFamily}`;
        context.lineWidth = 1;
        context.textAlign = "right";
        context.textBaseline = "middle";
        for (const value of [0, this.most / 2, this.most]) {
            const y = Math.round(this.y(value, height)) + 0.5;
            context.beginPath();
            context.moveTo(kLeft, y);
            context.lineTo(width, y);
            context.stroke();
            context.fillText(this.formatted(value), kLeft - 6, y);
        }
        this.drawTimes(context, width, height);
    }

    private drawTimes(context: CanvasRenderingContext2D, width: number, height: number): void {
        const { from, to } = this.picture;
        const minute = 60_000;
        const steps = [1, 2, 5, 10, 30, 60, 120, 360].map((minutes) => minutes * minute);
        const wanted = (to - from) / Math.max(1, (width - kLeft) / 90);
        const step = steps.find((each) => each >= wanted) ?? 1440 * minute;
        context.textAlign = "center";
        context.textBaseline = "bottom";
        for (let at = Math.ceil(from / step) * step; at < to; at += step) {
            const x = this.x(at, width);
            if (x > kLeft + 16 && x < width - 18) {
                context.fillText(format.timeOfDay(at).slice(0, 5), x, height);
            }
        }
    }

    private drawSeries(
        context: CanvasRenderingContext2D,
        series: Series,
        width: number,
        height: number,
    ): void {
        context.strokeStyle = colourOf(series.name);
        context.globalAlpha = this.picture.series.length > 12 ? 0.5 : 1;
        context.lineWidth = 1.5;
        context.lineJoin = "round";
        context.beginPath();
        let last = Number.NEGATIVE_INFINITY;
        for (const { at, value } of series.points) {
            if (value === null) {
                last = Number.NEGATIVE_INFINITY;
                continue;
            }
            const [x, y] = [this.x(at, width), this.y(value, height)];
            if (at - last > 3 * this.picture.step) {
                context.moveTo(x - 1, y);
            }
            context.lineTo(x, y);
            last = at;
        }
        context.stroke();
        context.globalAlpha = 1;
    }

    private drawTicks(context: CanvasRenderingContext2D, width: number, height: number): void {
        context.fillStyle = colour("grave");
        for (const { at } of this.picture.ticks) {
            const x = this.x(at, width);
            context.fillRect(x - 0.75, kTop, 1.5, height - kTop - kBottom);
            context.beginPath();
            context.moveTo(x - 4, kTop - 5);
            context.lineTo(x + 4, kTop - 5);
            context.lineTo(x, kTop + 2);
            context.fill();
        }
    }

    private showTip(x: number): void {
        const at = this.timeAt(x);
        const reach = 1.5 * this.picture.step;
        const values = this.picture.series
            .map(({ name, points }) => ({ name, value: nearest(points, at, reach) }))
            .filter((each): each is { name: string; value: number } => each.value !== null)
            .sort((one, other) => other.value - one.value)
            .slice(0, 6)
            .map(({ name, value }) => `${name}  ${this.formatted(value)}`);
        const ticks = this.picture.ticks
            .filter((tick) => Math.abs(tick.at - at) < reach)
            .map(({ text }) => text);
        this.tip.textContent = [format.timeOfDay(at), ...values, ...ticks.slice(0, 3)].join("\n");
        this.tip.classList.add("on");
        const isRight = x > this.canvas.clientWidth / 2;
        this.tip.style.left = isRight ? "auto" : `${x + 12}px`;
        this.tip.style.right = isRight ? `${this.canvas.clientWidth - x + 12}px` : "auto";
    }
}

function nearest(points: Series["points"], at: number, reach: number): number | null {
    let best: number | null = null;
    let distance = reach;
    for (const point of points) {
        const away = Math.abs(point.at - at);
        if (point.value !== null && away <= distance) {
            best = point.value;
            distance = away;
        }
    }
    return best;
}
