// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

const dark = window.matchMedia("(prefers-color-scheme: dark)");
const hues = new Map<string, number>();

/** Of the name alone, so that a device looks the same in each browser and on each day. */
function hueOf(name: string): number {
    const known = hues.get(name);
    if (known !== undefined) {
        return known;
    }
    let hash = 2_166_136_261;
    for (let place = 0; place < name.length; ++place) {
        hash = Math.imul(hash ^ name.charCodeAt(place), 16_777_619) >>> 0;
    }
    // The low bits of names that differ in a digit are alike; the golden angle spreads them.
    const hue = Math.round((hash * 137.508) % 360);
    hues.set(name, hue);
    return hue;
}

/** Equal lightness for all hues, with a contrast of more than 4.5 to the background of the lines. */
export function colourOf(device: string): string {
    return dark.matches ? `oklch(0.8 0.11 ${hueOf(device)})` : `oklch(0.47 0.13 ${hueOf(device)})`;
}

export function onTheme(listener: () => void): void {
    dark.addEventListener("change", listener);
}

/** A colour of the style sheet. */
export function colour(name: string): string {
    return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}
