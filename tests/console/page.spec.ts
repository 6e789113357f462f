// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { expect, test } from "./fixtures";

const numbered = (from: number, to: number) =>
    Array.from({ length: to - from + 1 }, (_, index) => `line ${from + index}.`);

test("shows all devices, with their states", async ({ console, server }) => {
    await expect(console.page.locator("#devices li")).toHaveCount(4);
    await expect(console.page.locator("#summary")).toContainText("4 of 4 devices connected");
    await server.mark("gps1", "disconnected", "Connection reset by peer");
    await expect(console.page.locator("#summary")).toContainText("3 of 4 devices connected");
    await expect(console.device("gps1")).toContainText("Connection reset by peer");
    await expect(console.row("connection ended: Connection reset by peer")).toBeVisible();
});

test("survives a device's restart", async ({ console, server }) => {
    await server.say("gps1", "before the restart");
    await server.mark("gps1", "disconnected", "it ended");
    await server.mark("gps1", "connected", "10.0.0.5:2324");
    await server.say("gps1", "after the restart");
    await expect(console.row("before the restart")).toBeVisible();
    await expect(console.row("connected to 10.0.0.5:2324")).toBeVisible();
    await expect(console.row("after the restart")).toBeVisible();
    await expect(console.device("gps1").locator(".state")).toContainText("connected");
});

test("shows the lines of the devices that are chosen", async ({ console, server }) => {
    await server.say("gps1", "of the first");
    await server.say("wind1", "of the second");
    await console.choose("wind1");
    await expect(console.row("of the second")).toBeVisible();
    await expect(console.row("of the first")).toHaveCount(0);
    await server.say("gps1", "also of the first");
    await server.say("wind1", "also of the second");
    await expect(console.row("also of the second")).toBeVisible();
    await expect(console.row("also of the first")).toHaveCount(0);
    await console.page.getByRole("button", { name: "Show all" }).click();
    await expect(console.row("also of the first")).toBeVisible();
});

test("shows the devices of a group", async ({ console, server }) => {
    await server.say("gps1", "of a gps");
    await server.say("sonar1", "of a sonar");
    await console.page.getByRole("group", { name: "Groups" }).getByText("sonar").click();
    await expect(console.row("of a sonar")).toBeVisible();
    await expect(console.row("of a gps")).toHaveCount(0);
    await expect(console.device("sonar1").locator(".choice")).toHaveAttribute(
        "aria-pressed",
        "true",
    );
});

test("searches for a text, in any case, and marks it", async ({ console, server }) => {
    await server.say("gps1", "Fix (3D) with 9 satellites", "no fix", "something else");
    await console.page.getByLabel("Search the lines", { exact: true }).fill("fix (3d)");
    await expect(console.row("something else")).toHaveCount(0);
    await expect(console.row("no fix")).toHaveCount(0);
    await expect(console.row("9 satellites").locator(".found")).toHaveText("Fix (3D)");
    await server.say("gps1", "lost again", "fix (3D) again");
    await expect(console.row("fix (3D) again")).toBeVisible();
    await expect(console.row("lost again")).toHaveCount(0);
});

test("searches for an expression, and says what is wrong with one", async ({ console, server }) => {
    await server.say("gps1", "handle 17", "handle none");
    const search = console.page.getByLabel("Search the lines", { exact: true });
    await console.page.getByRole("button", { name: "regular expression" }).click();
    await search.fill("handle [[:digit:]]+");
    await expect(console.row("handle none")).toHaveCount(0);
    await expect(console.row("handle 17")).toBeVisible();
    await search.fill("handle (");
    await expect(console.page.locator("#notice")).toContainText("is no regular expression");
    await expect(search).toHaveAttribute("aria-invalid", "true");
    await search.fill("");
    await expect(console.row("handle none")).toBeVisible();
    await expect(console.page.locator("#notice")).toBeHidden();
    console.complaints.splice(0, console.complaints.length, ...console.complaints.filter(isOther));
});

/** The browser tells of the refusal that was asked for. */
function isOther(complaint: string): boolean {
    return !complaint.includes("status of 400");
}

test("shows lines with grave words, and colours them", async ({ console, server }) => {
    await server.say("gps1", "Unable to open file", "all is well", "warning: hot");
    await expect(console.row("Unable to open")).toHaveClass(/grave/);
    await expect(console.row("warning: hot")).toHaveClass(/light/);
    await console.page.getByRole("button", { name: "unable" }).click();
    await expect(console.row("all is well")).toHaveCount(0);
    await console.page.getByRole("button", { name: "warning" }).click();
    await expect(console.row("warning: hot")).toBeVisible();
    await expect(console.row("Unable to open")).toBeVisible();
});

test("keeps the filter in the address", async ({ console, server }) => {
    await server.say("gps1", "first of gps", "second of gps");
    await server.say("wind1", "first of wind");
    await console.choose("gps1");
    await console.page.getByLabel("Search the lines", { exact: true }).fill("first");
    await expect(console.row("second of gps")).toHaveCount(0);
    await console.page.reload();
    await expect(console.row("first of gps")).toBeVisible();
    await expect(console.row("first of wind")).toHaveCount(0);
    await expect(console.row("second of gps")).toHaveCount(0);
});

test("pauses, and scrolls back over the history", async ({ console, server }) => {
    await server.say("gps1", ...numbered(1, 3000));
    await expect(console.row("line 3000.")).toBeVisible();
    await console.page.keyboard.press("Space");
    await expect(console.follow).toHaveText("Paused");
    await server.say("gps1", "a newer line");
    await expect(console.follow).toHaveText("Paused, 1 new");
    expect((await console.shown()).at(-1)).toContain("line 3000.");
    await console.list.focus();
    await expect(async () => {
        await console.page.keyboard.press("Home");
        await expect(console.row(/line 1\.$/)).toBeVisible({ timeout: 500 });
    }).toPass({ intervals: [50] });
    await console.page.keyboard.press("End");
    await expect(console.row("a newer line")).toBeVisible();
    await expect(console.follow).toHaveText("Following");
});

test("stands still while lines come, and follows again at the end", async ({ console, server }) => {
    await server.say("gps1", ...numbered(1, 400));
    await expect(console.row("line 400.")).toBeVisible();
    await console.list.hover();
    await console.page.mouse.wheel(0, -2000);
    await expect(console.follow).toHaveText(/Paused/);
    await expect(console.row("line 400.")).toHaveCount(0);
    const [first] = await console.shown();
    await server.say("gps1", ...numbered(401, 500));
    await expect(console.follow).toHaveText("Paused, 100 new");
    expect((await console.shown())[0]).toBe(first);
    await expect(async () => {
        await console.page.mouse.wheel(0, 5000);
        await expect(console.follow).toHaveText("Following", { timeout: 500 });
    }).toPass({ intervals: [50] });
    await expect(console.row("line 500.")).toBeVisible();
});

test("reads what came too fast to be shown", async ({ console, server }) => {
    await server.say("gps1", "at first");
    await expect(console.row("at first")).toBeVisible();
    await server.say("gps1", ...numbered(1, 3000));
    await expect(console.row("line 3000.")).toBeVisible();
    await console.page.keyboard.press("Space");
    await console.list.focus();
    await expect(async () => {
        await console.page.keyboard.press("PageUp");
        await expect(console.row("line 2401.")).toBeVisible({ timeout: 200 });
    }).toPass({ intervals: [50] });
    await expect(console.row("came faster than can be shown")).toHaveCount(0);
});

test("shows the whole of a long line", async ({ console, server }) => {
    const long = `begin ${"x".repeat(5000)} end of the line`;
    await server.say("gps1", long);
    await console.row("begin").click();
    await expect(console.page.locator("#details-text")).toHaveText(long);
    await console.page.keyboard.press("Escape");
    await expect(console.page.locator("#details")).toBeHidden();
});

test("stands still where a line is selected", async ({ console, server }) => {
    await server.say("gps1", ...numbered(1, 100));
    await console.row("line 100.").click();
    await expect(console.page.locator("#details-text")).toHaveText("line 100.");
    await expect(console.follow).toHaveText("Paused");
    await server.say("gps1", "a newer line");
    await expect(console.follow).toHaveText("Paused, 1 new");
    expect((await console.shown()).at(-1)).toContain("line 100.");
});

test("sets a level once it is confirmed, and shows the answer", async ({ console, server }) => {
    const dialog = console.page.getByRole("dialog", { name: "Debug level of gps1" });
    await console.page.getByRole("button", { name: "set that of gps1" }).click();
    await dialog.getByRole("radio").nth(5).check();
    await dialog.getByRole("button", { name: "Close" }).click();
    await expect(dialog).toBeHidden();
    await expect(console.device("gps1").locator(".level")).toHaveText("Level 0");
    await console.page.getByRole("button", { name: "set that of gps1" }).click();
    await dialog.getByRole("radio").nth(5).check();
    await dialog.getByRole("button", { name: "Set level 5" }).click();
    await expect(dialog).toContainText("gps1 has level 5, and says: 31740 NewLogLevelData");
    await expect(console.device("gps1").locator(".level")).toHaveText("Level 5");
    await server.mute();
    await dialog.getByRole("radio").nth(9).check();
    await dialog.getByRole("button", { name: "Set level 9" }).click();
    await expect(dialog).toContainText("Not confirmed: no answer came");
});

test("goes on after a restart of the server with a new history", async ({ console, server }) => {
    await server.say("gps1", "of the old server");
    await expect(console.row("of the old server")).toBeVisible();
    await server.stop();
    await expect(console.page.getByRole("alert")).toContainText("No connection to the console");
    await server.start();
    await server.say("gps1", "of the new server");
    await expect(console.row("of the new server")).toBeVisible();
    await expect(console.page.getByRole("alert")).toBeHidden();
    await expect(console.row("of the old server")).toHaveCount(0);
});

test("fills what came while the connection was away", async ({ console, server }) => {
    await server.say("gps1", "before");
    await expect(console.row("before")).toBeVisible();
    await server.hangUp();
    await expect(console.page.getByRole("alert")).toBeVisible();
    await server.say("gps1", ...numbered(1, 600));
    await server.comeBack();
    await expect(console.page.getByRole("alert")).toBeHidden();
    await expect(console.row("line 600.")).toBeVisible();
    const count = await console.rows.first().getAttribute("aria-setsize");
    expect(count).toBe("601");
});

test("heeds a filter that is set while the server is away", async ({ console, server }) => {
    await server.say("gps1", "of gps before");
    await server.say("wind1", "of wind before");
    await expect(console.row("of wind before")).toBeVisible();
    await server.hangUp();
    await expect(console.page.getByRole("alert")).toBeVisible();
    await console.choose("gps1");
    await server.say("wind1", "of wind meanwhile");
    await server.say("gps1", "of gps meanwhile");
    await server.comeBack();
    await expect(console.row("of gps meanwhile")).toBeVisible();
    await expect(console.row("of gps before")).toBeVisible();
    await expect(console.row("of wind")).toHaveCount(0);
    await server.say("gps1", "of gps afterwards");
    await expect(console.row("of gps afterwards")).toBeVisible();
});

test("begins with a wrong expression, and goes on once it is right", async ({
    console,
    server,
}) => {
    await console.open(`${server.url}#grep=(`);
    await console.page.reload();
    await expect(console.page.locator("#notice")).toContainText("is no regular expression");
    await console.page.getByLabel("Search the lines", { exact: true }).fill("(one|two)");
    await expect(console.page.locator("#notice")).toBeHidden();
    await server.say("gps1", "one", "three", "two");
    await expect(console.row("two")).toBeVisible();
    await expect(console.row("one")).toBeVisible();
    await expect(console.row("three")).toHaveCount(0);
    console.complaints.splice(0, console.complaints.length, ...console.complaints.filter(isOther));
});

test("notices a server that says nothing any more", async ({ console, server }) => {
    server.halt();
    await expect(console.page.getByRole("alert")).toBeVisible();
    server.goOn();
    await expect(console.page.getByRole("alert")).toBeHidden();
    await server.say("gps1", "here again");
    await expect(console.row("here again")).toBeVisible();
});

test("marks where something was lost, in the lines and on the time line", async ({
    console,
    server,
}) => {
    await server.say("gps1", "before the loss");
    await server.mark("gps1", "lines-lost", "", 1234);
    await server.endStep();
    await expect(console.row("1,234 lines lost here")).toHaveClass(/loss/);
    await expect(console.device("gps1").locator(".lost")).toHaveText("1,234 lost");
    await expect(console.page.locator("canvas").first()).toHaveAttribute("aria-label", /1 loss/);
});

test("shows hostile lines as text, and runs nothing of them", async ({ console, server }) => {
    const hostile = [
        "<img src=x onerror=\"document.title='taken'\">",
        "<script>document.title='taken'</script>",
        "javascript:document.title='taken' {{1+1}} &lt;b&gt;",
        "\u202Eneddih\\x1b[2J error <svg onload=document.title='taken'>",
    ];
    await server.say("gps1", ...hostile);
    for (const line of hostile) {
        await expect(console.rows.locator(".text").getByText(line, { exact: true })).toBeVisible();
    }
    await console.row("<img").click();
    await expect(console.page.locator("#details-text")).toHaveText(hostile[0] ?? "");
    await server.mark("gps1", "unreachable", "<b onmouseover=alert(1)>why</b>");
    await expect(console.device("gps1").locator(".state")).toContainText("<b onmouseover");
    expect(await console.page.title()).toBe("osx console");
    expect(await console.page.locator("#lines img, #lines script, #lines svg, li b").count()).toBe(
        0,
    );
});

test.describe("with a past", () => {
    test.use({ serverOptions: ["--past", "60"] });

    test("goes to a time", async ({ console }) => {
        const wanted = new Date(Date.now() - 30 * 60_000);
        wanted.setSeconds(0, 0);
        await console.page.keyboard.press("g");
        const field = console.page.getByLabel("Lines from");
        const local = new Date(wanted.getTime() - wanted.getTimezoneOffset() * 60_000);
        await field.fill(local.toISOString().slice(0, 16));
        await console.page.keyboard.press("Enter");
        await expect(console.follow).toHaveText(/Paused/);
        const time = local.toISOString().slice(11, 16);
        const first = async () => (await console.shown())[0];
        await expect.poll(first).toContain(`${time}:00`);
        await console.page.mouse.move(800, 600);
        await console.page.mouse.wheel(0, -300);
        await expect.poll(first).not.toContain(`${time}:0`);
    });

    test("goes to the time that is clicked in a chart", async ({ console }) => {
        const chart = console.page.locator("canvas").first();
        await expect(chart).toHaveAttribute("aria-label", /losses/);
        await chart.click({ position: { x: 200, y: 40 } });
        await expect(console.follow).toHaveText(/Paused/);
        await expect(console.rows.first()).toBeVisible();
    });
});
