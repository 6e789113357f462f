// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/** Times and numbers as people read them; times are those of the reader's zone. */

const kDate = new Intl.DateTimeFormat(undefined, {
    day: "numeric",
    month: "short",
    year: "numeric",
});
const kNumber = new Intl.NumberFormat("en-GB");

const pad = (value: number, digits = 2): string => String(value).padStart(digits, "0");

export function timeOfDay(at: number): string {
    const time = new Date(at);
    return `${pad(time.getHours())}:${pad(time.getMinutes())}:${pad(time.getSeconds())}`;
}

export function timeWithMs(at: number): string {
    return `${timeOfDay(at)}.${pad(new Date(at).getMilliseconds(), 3)}`;
}

export function date(at: number): string {
    return kDate.format(new Date(at));
}

/** As a field for a time wants it: 2026-11-23T03:01:15. */
export function forField(at: number): string {
    const time = new Date(at);
    const day = `${time.getFullYear()}-${pad(time.getMonth() + 1)}-${pad(time.getDate())}`;
    return `${day}T${timeOfDay(at)}`;
}

export function count(value: number): string {
    return kNumber.format(value);
}

export function counted(value: number, one: string, many: string): string {
    return `${count(value)} ${value === 1 ? one : many}`;
}

export function rate(value: number): string {
    return value > 0 && value < 10 ? String(Number(value.toFixed(1))) : count(Math.round(value));
}

/** For the scale of a chart: 2500 is 2.5k. */
export function brief(value: number): string {
    return value >= 1000
        ? `${Number((value / 1000).toFixed(1))}k`
        : String(Number(value.toFixed(1)));
}

export function duration(ms: number): string {
    const seconds = Math.max(0, Math.round(ms / 1000));
    if (seconds < 120) {
        return `${seconds} s`;
    }
    if (seconds < 7200) {
        return `${Math.floor(seconds / 60)} min`;
    }
    return seconds < 172_800
        ? `${Math.floor(seconds / 3600)} h`
        : `${Math.floor(seconds / 86_400)} d`;
}

export function memory(kilobytes: number): string {
    return kilobytes < 1_048_576
        ? `${Math.round(kilobytes / 1024)} MiB`
        : `${(kilobytes / 1_048_576).toFixed(1)} GiB`;
}
