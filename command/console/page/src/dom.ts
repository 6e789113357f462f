// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/** What an element may be made with; texts are never read as HTML. */
type Parts = {
    text?: string;
    class?: string;
    attributes?: Record<string, string>;
    on?: Record<string, (event: Event) => void>;
};

export function make<K extends keyof HTMLElementTagNameMap>(
    tag: K,
    parts: Parts = {},
    ...children: Node[]
): HTMLElementTagNameMap[K] {
    const element = document.createElement(tag);
    if (parts.class) {
        element.className = parts.class;
    }
    if (parts.text !== undefined) {
        element.textContent = parts.text;
    }
    for (const [name, value] of Object.entries(parts.attributes ?? {})) {
        element.setAttribute(name, value);
    }
    for (const [name, listener] of Object.entries(parts.on ?? {})) {
        element.addEventListener(name, listener);
    }
    element.append(...children);
    return element;
}

export function byId<T extends HTMLElement>(id: string, type: new () => T): T {
    const element = document.getElementById(id);
    if (!(element instanceof type)) {
        throw new Error(`the page has no ${type.name} '${id}'`);
    }
    return element;
}

/** Sets a text that is mostly the same, without work for the browser if it is. */
export function setText(element: Element, text: string): void {
    if (element.textContent !== text) {
        element.textContent = text;
    }
}

export function setAttribute(element: Element, name: string, value: string): void {
    if (element.getAttribute(name) !== value) {
        element.setAttribute(name, value);
    }
}
