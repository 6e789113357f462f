#!/usr/bin/env node
// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Serves the page of the console with made-up devices, for tests of the page and under load.
//
//   node fakeServer.mjs [--port N] [--page FOLDER] [--devices N] [--rate LINES_A_SECOND] [--past MINUTES]
//
// A process that forks it steers it by messages; see `orders` below.
import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { parseArgs } from "node:util";

const here = dirname(fileURLToPath(import.meta.url));
const { values: options } = parseArgs({
    options: {
        port: { type: "string", default: "0" },
        page: {
            type: "string",
            default: process.env.OSX_PAGE_OUT ?? join(here, "../../command/console/page/dist"),
        },
        devices: { type: "string", default: "4" },
        rate: { type: "string", default: "0" },
        past: { type: "string", default: "0" },
    },
});

const kMostEntries = 200_000;
/** Entries of a batch of the stream; what comes faster is in the history alone. */
const kMostInBatch = 500;
const kBatchMs = 100;
const kStepMs = 10_000;
const kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; " +
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// --- devices and their lines --------------------------------------------------------------------

const places = ["bridge", "mast", "engine", "bow", "stern", "deck"];
const kinds = ["gps", "wind", "sonar", "radio"];
const started = Date.now();
const entries = [];
const points = [];
let newest = 0;
let answersLevels = true;
let isAway = false;

const devices = Array.from({ length: Number(options.devices) }, (_, index) => {
    const kind = kinds[index % kinds.length];
    return {
        name: `${kind}${Math.floor(index / kinds.length) + 1}`,
        host: `10.0.0.${index + 5}`,
        port: 2324,
        levelPort: 12311,
        groups: [kind, places[index % places.length]],
        state: "connected",
        since: started,
        why: `connected to 10.0.0.${index + 5}:2324`,
        rate: 0,
        lines: 0,
        lost: 0,
        level: index % 3 === 0 ? 0 : null,
        figures: null,
        inSecond: 0,
        inStep: 0,
        lostInStep: 0,
    };
});

function add(entry) {
    entries.push({ id: ++newest, ...entry });
    if (entries.length > kMostEntries + 10_000) {
        entries.splice(0, entries.length - kMostEntries);
    }
}

function deviceOf(name) {
    return devices.find((device) => device.name === name);
}

function say(name, line, at = Date.now()) {
    const device = deviceOf(name);
    ++device.lines;
    ++device.inSecond;
    ++device.inStep;
    add({ at, device: name, line });
}

function mark(name, kind, text, count = 0, at = Date.now()) {
    const device = deviceOf(name);
    device.why = `${kind}: ${text}`;
    if (kind === "lines-lost") {
        device.lost += count;
        device.lostInStep += count;
    } else if (["connected", "disconnected", "unreachable"].includes(kind)) {
        device.state = kind === "connected" ? "connected" : "connecting";
        device.since = at;
    }
    add({ at, device: name, mark: kind, text, count });
}

const phrases = [
    (n) => `${30_000 + (n % 7)} osxDataHandler::handle_input: handle = ${n % 40} result=${n % 90}`,
    (n) =>
        `${30_100 + (n % 5)} $GPGGA,${120_000 + n},5130.1${n % 10},N,00007.6${n % 7},W,1,08,0.9*4${n % 9}`,
    (n) =>
        `${30_200 + (n % 5)} gateway: ${n % 60} sentences passed on, ${n % 3} with a wrong checksum`,
    (n) =>
        `${30_300 + (n % 5)} osxMsgQueueInit: size[${64 + (n % 64)}] maxMsgs[${n % 16}] qname[checker]`,
    (n) => `${30_400 + (n % 5)} recorder: ${n % 900} records synced in ${n % 12} ms`,
];
const rare = [
    (n) =>
        `${31_000 + (n % 5)} commIfFileOpen: Unable to open file [/data/log.${n % 4}]! desc[${n % 20}]`,
    () => "31740 osxSocketSend: error 104, connection reset by peer",
    (n) => `31800 warning: temperature ${60 + (n % 12)} degrees`,
];

function madeUp(number) {
    const phrase =
        number % 37 === 0 ? rare[number % rare.length] : phrases[number % phrases.length];
    return phrase(number);
}

/** Some devices say more than others; a multiple of a prime, so that they do not simply take turns. */
function someDevice(number) {
    const place = ((number * 7919) % 997) / 997;
    return devices[Math.floor(place * place * devices.length)];
}

function sayMadeUp(times) {
    for (let each = 0; each < times; ++each) {
        say(someDevice(newest).name, madeUp(newest));
    }
}

function figuresOf(device, at) {
    const phase = device.name.length + Number(device.name.replace(/\D/g, "")) * 2.1;
    const wave = Math.sin(at / 90_000 + phase) + 0.5 * Math.sin(at / 23_000 + 3 * phase);
    const memoryTotal = 1_048_576;
    const memoryFree = Math.round(memoryTotal * (0.45 + 0.06 * wave));
    return {
        at,
        load: Number((0.6 + 0.25 * wave + 0.1 * phase).toFixed(2)),
        memoryTotal,
        memoryFree,
    };
}

function endStep(at) {
    for (const device of devices) {
        const figures = device.state === "connected" ? figuresOf(device, at) : null;
        device.figures = figures ?? device.figures;
        points.push({
            at,
            device: device.name,
            lines: device.inStep,
            lost: device.lostInStep,
            load: figures?.load ?? null,
            memoryFree: figures?.memoryFree ?? null,
            memoryTotal: figures?.memoryTotal ?? null,
        });
        device.inStep = 0;
        device.lostInStep = 0;
    }
    points.splice(0, points.length - 200_000);
}

/** What could have happened in the minutes before the start. */
function makePast(minutes) {
    const steps = (minutes * 60_000) / kStepMs;
    for (let step = 0; step < steps; ++step) {
        const from = started - (steps - step) * kStepMs;
        const lines = 60 + Math.round(40 * Math.sin(step / 9) + 25 * Math.sin(step / 2.3));
        for (let line = 0; line < lines; ++line) {
            const at = from + Math.round((line * kStepMs) / lines);
            say(someDevice(newest).name, madeUp(newest), at);
        }
        if (step % 41 === 30) {
            mark(devices[1 % devices.length].name, "lines-lost", "", 312, from + kStepMs - 1);
        }
        endStep(from + kStepMs);
    }
}

// --- answers ------------------------------------------------------------------------------------

class Bad extends Error {}

/** As the C library reads it, as far as the tests go. */
function pattern(expression) {
    const classes = { digit: "0-9", alpha: "A-Za-z", space: "\\s", upper: "A-Z", lower: "a-z" };
    try {
        return new RegExp(expression.replace(/\[:(\w+):\]/g, (_, name) => classes[name]));
    } catch {
        throw new Bad(`'${expression}' is no regular expression: Unmatched ( or \\(`);
    }
}

function filterOf(query) {
    const names = new Set(query.getAll("device"));
    const grep = query.get("grep");
    const sought = grep ? pattern(grep) : null;
    const words = (query.get("words") ?? "").toLowerCase().split(",").filter(Boolean);
    return ({ device, line }) =>
        (names.size === 0 || names.has(device)) &&
        (sought === null || line === undefined || sought.test(line)) &&
        (words.length === 0 ||
            line === undefined ||
            words.some((word) => line.toLowerCase().includes(word)));
}

/** @return the first place whose entry has a number, or a time, from a value on. */
function placeOf(key, value) {
    let [low, high] = [0, entries.length];
    while (low < high) {
        const middle = (low + high) >> 1;
        if (entries[middle][key] < value) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

function history(query) {
    const isShown = filterOf(query);
    const limit = Math.min(Number(query.get("limit") ?? 500), 2000);
    if (query.has("after") || query.has("at")) {
        const first = query.has("at")
            ? placeOf("at", Number(query.get("at")))
            : placeOf("id", Number(query.get("after")) + 1);
        const found = take(first, 1, isShown, limit + 1);
        return { entries: found.slice(0, limit), more: found.length > limit };
    }
    const before = query.has("before") ? Number(query.get("before")) : newest + 1;
    const found = take(placeOf("id", before) - 1, -1, isShown, limit + 1);
    return { entries: found.slice(0, limit).reverse(), more: found.length > limit };
}

function take(from, step, isShown, limit) {
    const found = [];
    for (let place = from; entries[place] !== undefined && found.length < limit; place += step) {
        if (isShown(entries[place])) {
            found.push(entries[place]);
        }
    }
    return found;
}

function told({ inSecond, inStep, lostInStep, ...device }) {
    return device;
}

function state() {
    return {
        version: "1.1.0",
        now: Date.now(),
        limits: { ageS: 86_400, bytes: 67_108_864 },
        devices: devices.map(told),
        oldest: entries[0]?.id ?? 0,
        newest,
    };
}

function figures(query) {
    const since = Number(query.get("since") ?? 0);
    const device = query.get("device");
    const found = points.filter(
        (point) => point.at >= since && (!device || point.device === device),
    );
    const keep = Math.max(1, Math.ceil(found.length / 2000));
    const steps = [...new Set(found.map(({ at }) => at))];
    const kept = new Set(steps.filter((_, index) => index % keep === 0));
    return { step: kStepMs, points: found.filter(({ at }) => kept.has(at)) };
}

async function setLevel(request) {
    let text = "";
    for await (const piece of request) {
        text += piece;
    }
    if (request.headers["x-osx-console"] !== "1") {
        return [403, { error: "the header X-Osx-Console is missing" }];
    }
    const { device: name, level } = JSON.parse(text);
    const device = deviceOf(name);
    if (device === undefined || !Number.isInteger(level)) {
        return [400, { error: "no such device" }];
    }
    if (!answersLevels || device.state !== "connected") {
        return [200, { confirmed: false, why: "no answer came" }];
    }
    device.level = level;
    const line = `31740 NewLogLevelData set the debug level to [${level}]`;
    say(name, line);
    return [200, { confirmed: true, line }];
}

// --- the stream ---------------------------------------------------------------------------------

const streams = new Set();
let sent = 0;

function send(event, data) {
    const text = `event: ${event}\nid: ${newest}\ndata: ${JSON.stringify(data)}\n\n`;
    for (const stream of streams) {
        stream.write(text);
    }
}

function sendBatch() {
    if (newest > sent) {
        const fresh = entries.slice(placeOf("id", sent + 1));
        const skipped = Math.max(0, fresh.length - kMostInBatch);
        send("lines", { entries: fresh.slice(skipped), skipped });
        sent = newest;
    }
}

function sendDevices() {
    for (const device of devices) {
        device.rate = device.inSecond;
        device.inSecond = 0;
    }
    send("devices", { now: Date.now(), devices: devices.map(told) });
}

function openStream(response) {
    response.writeHead(200, { ...kHeaders, "Content-Type": "text/event-stream" });
    response.write(":\n\n");
    streams.add(response);
    response.on("close", () => streams.delete(response));
}

// --- requests -----------------------------------------------------------------------------------

const kHeaders = {
    "Content-Security-Policy": kPolicy,
    "X-Content-Type-Options": "nosniff",
    "Referrer-Policy": "no-referrer",
    "Cache-Control": "no-store",
};
const kFiles = {
    "/": ["index.html", "text/html; charset=utf-8"],
    "/app.js": ["app.js", "text/javascript; charset=utf-8"],
    "/app.css": ["app.css", "text/css; charset=utf-8"],
};

function answer(response, status, body, type = "application/json") {
    response.writeHead(status, { ...kHeaders, "Content-Type": type });
    response.end(typeof body === "string" || Buffer.isBuffer(body) ? body : JSON.stringify(body));
}

async function serve(request, response) {
    const { pathname, searchParams: query } = new URL(request.url, "http://localhost");
    const file = kFiles[pathname];
    if (file !== undefined) {
        answer(response, 200, await readFile(join(options.page, file[0])), file[1]);
    } else if (pathname === "/api/events") {
        openStream(response);
    } else if (pathname === "/api/state") {
        answer(response, 200, state());
    } else if (pathname === "/api/history") {
        answer(response, 200, history(query));
    } else if (pathname === "/api/figures") {
        answer(response, 200, figures(query));
    } else if (pathname === "/api/level" && request.method === "POST") {
        answer(response, ...(await setLevel(request)));
    } else {
        answer(response, pathname === "/api/level" ? 405 : 404, { error: "no such page" });
    }
}

// --- the run ------------------------------------------------------------------------------------

let rate = Number(options.rate);
let owed = 0;
let last = Date.now();

function run() {
    const now = Date.now();
    owed += (rate * Math.min(now - last, 1000)) / 1000;
    last = now;
    sayMadeUp(Math.floor(owed));
    owed %= 1;
    sendBatch();
}

/** What the process that forked this one may ask for; each order is answered with its number. */
const orders = {
    say: ({ device, lines }) => {
        for (const line of lines) {
            say(device, line);
        }
    },
    mark: ({ device, kind, text, count }) => mark(device, kind, text, count),
    rate: ({ lines }) => {
        rate = lines;
    },
    mute: () => {
        answersLevels = false;
    },
    endStep: () => endStep(Date.now()),
    hangUp: () => {
        isAway = true;
        server.closeAllConnections();
    },
    comeBack: () => {
        isAway = false;
    },
};

process.on("message", (order) => {
    orders[order.name](order);
    sendBatch();
    process.send({ done: order.number, newest });
});
process.on("disconnect", () => process.exit(0));

makePast(Number(options.past));
sent = newest;
for (const device of devices) {
    device.inSecond = 0;
    device.since = started - Number(options.past) * 60_000;
}
setInterval(run, kBatchMs);
setInterval(sendDevices, 1000);
setInterval(() => endStep(Date.now()), kStepMs);

const server = createServer((request, response) => {
    if (isAway) {
        request.socket.destroy();
        return;
    }
    serve(request, response).catch((error) => {
        answer(response, error instanceof Bad ? 400 : 500, { error: error.message });
    });
});
server.listen(Number(options.port), "127.0.0.1", () => {
    const { port } = server.address();
    console.log(`http://127.0.0.1:${port}/`);
    process.send?.({ port });
});
