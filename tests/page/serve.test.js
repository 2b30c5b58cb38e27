// The page before the real server: a simulated radar is recorded, served and looked at.

import assert from "node:assert/strict";
import { once } from "node:events";
import { mkdir, readFile, writeFile } from "node:fs/promises";
import { connect } from "node:net";
import { join } from "node:path";
import { after, afterEach, before, test } from "node:test";
import { setTimeout as sleep } from "node:timers/promises";
import { launch } from "./browser.js";
import { expectedPicture } from "./expected.js";
import { Workplace, cRadar, finish } from "./kestova.js";
import { pixelsOf } from "./png.js";

const cTurnMs = 1000; // 60 turns a minute
const cPatienceMs = 60000;
const cRows = 4096;
const cCells = 512;

const place = new Workplace();
/** @type {import("playwright-core").Browser} */
let browser;
/** @type {import("playwright-core").BrowserContext[]} */
const contexts = [];
let recorded = { id: "", first_ms: 0, last_ms: 0 };
let url = "";
/** @type {{ time_ms: number, spokes: { bearing_from: number, cells: string }[] }[]} */
let records = [];

before(async () => {
    await place.begin();
    browser = await launch();
    await mkdir(place.root);
    const recorder = place.start("record", "--radars", place.radars, ...cRadar, "--root", place.root, "--quiet");
    await sleep(1000);
    await once(place.simulate("--duration", "5"), "exit");
    await sleep(3000); // the gap
    await once(place.simulate("--duration", "4"), "exit");
    await finish(recorder);
    url = (await place.serve()).url;
    const { recordings } = await (await fetch(`${url}api/v1/recordings`)).json();
    [recorded] = recordings;
    const lines = await place.run("dump", place.root, "--streams", "imageStream", "--decode", "--json");
    records = lines
        .trim()
        .split("\n")
        .map(line => JSON.parse(line));
});
afterEach(async () => {
    for (const context of contexts.splice(0)) await context.close();
});
after(async () => {
    await browser?.close();
    await place.end();
});

/** @param {string} hash */
async function open(hash, address = url) {
    const context = await browser.newContext({ viewport: { width: 1280, height: 1000 } });
    contexts.push(context);
    const page = await context.newPage();
    page.setDefaultTimeout(90000);
    await page.goto(`${address}#${hash}`);
    return page;
}

/** @param {import("playwright-core").Page} page @param {string} text */
const untilMode = (page, text) =>
    page
        .getByRole("status", { name: "Mode" })
        .filter({ hasText: new RegExp(`^${text}`) })
        .waitFor();

/** @param {import("playwright-core").Page} page */
const picture = page => page.getByRole("img", { name: "Radar picture", exact: true });

/** @param {import("playwright-core").Page} page @param {string} name @param {(value: number) => boolean} isIt */
async function untilFact(page, name, isIt) {
    let value = NaN;
    for (const end = Date.now() + cPatienceMs; Date.now() < end; await sleep(50)) {
        value = Number(await picture(page).getAttribute(`data-${name}`));
        if (isIt(value)) return value;
    }
    return assert.fail(`data-${name} is ${value}`);
}

/** Opens a place, paused. @param {number} at @param {string} more */
async function openPaused(at, more) {
    const page = await open(`id=${recorded.id}&t=${at}&${more}`);
    await untilMode(page, "REPLAY");
    await page.getByRole("button", { name: "Play", exact: true }).waitFor();
    await page.locator(`[aria-valuemin='${recorded.first_ms}']`).waitFor();
    return page;
}

/** The last turn up to a time, row by row, as the recording has it. @param {number} at */
function turnAt(at) {
    const rows = Array.from({ length: cRows }, () => new Uint8Array(cCells));
    const received = records.filter(record => record.time_ms <= at).slice(-cRows);
    for (const { spokes } of received)
        for (const spoke of spokes)
            rows[Math.round(spoke.bearing_from * cRows)] = new Uint8Array(Buffer.from(spoke.cells, "hex"));
    return rows;
}

test("the picture of a place has the cells of the turn before it, and no others", async () => {
    const at = recorded.first_ms + 3000;
    const page = await openPaused(at, "palette=grey&overlays=0&size=600");
    const slider = page.getByRole("slider", { name: "Timeline" });
    await slider.press("Home");
    await slider.press("ArrowRight");
    await slider.press("ArrowRight");
    const wanted = Number(await slider.getAttribute("aria-valuenow"));
    assert.equal(wanted, recorded.first_ms + 2000);
    const newest = records.filter(record => record.time_ms <= wanted).pop()?.time_ms ?? 0;
    await untilFact(page, "time-ms", value => Math.abs(value - newest) <= 2);
    const rows = turnAt(wanted);
    const shot = pixelsOf(await picture(page).screenshot());
    const { least, most } = expectedPicture(600, cCells / 300, rows);
    let [others, bright] = [0, 0];
    least.forEach((low, i) => {
        const shown = shot.at(i % 600, Math.floor(i / 600))[0];
        others += shown < low - 1 || shown > most[i] + 1 ? 1 : 0;
        bright += low > 200 ? 1 : 0;
    });
    assert.ok(bright > 20, "there are targets");
    assert.ok(others <= 40, `${others} pixels are others: a record more or less at the place, no more`);
});

test("a jump shows its time within a turn, and steps go on by turns", async () => {
    const page = await openPaused(recorded.first_ms + 1500, "palette=dusk&size=400");
    const slider = page.getByRole("slider", { name: "Timeline" });
    await slider.press("ArrowRight");
    const wanted = Number(await slider.getAttribute("aria-valuenow"));
    const shown = await untilFact(page, "time-ms", value => value <= wanted && value > wanted - cTurnMs);
    await page.getByRole("button", { name: "Next turn" }).click();
    const next = await untilFact(page, "time-ms", value => value > shown + cTurnMs / 2);
    assert.ok(next < shown + 2 * cTurnMs, `${next - shown} ms`);
    await page.getByRole("button", { name: "Previous turn" }).click();
    await untilFact(page, "time-ms", value => value < next - cTurnMs / 2);
});

test("a gap lies at its place on the timeline, and a step goes there", async () => {
    const page = await openPaused(recorded.first_ms + 1500, "palette=dusk&size=200");
    const times = records.map(record => record.time_ms);
    const gap = times.findIndex((time, i) => i > 0 && time - times[i - 1] > 2000);
    assert.ok(gap > 0, "the simulator was stopped");
    const slider = page.getByRole("slider", { name: "Timeline" });
    const [low, high] = await Promise.all(
        ["min", "max"].map(async name => Number(await slider.getAttribute(`aria-value${name}`))),
    );
    const isRed = (/** @type {ArrayLike<number>} */ colour) =>
        colour[0] > 90 && colour[0] > colour[1] * 1.7 && colour[0] > colour[2] * 1.7;
    let columns = /** @type {number[]} */ ([]);
    let width = 0;
    for (const end = Date.now() + cPatienceMs; columns.length === 0 && Date.now() < end;) {
        const shot = pixelsOf(await slider.screenshot());
        width = shot.width;
        columns = Array.from({ length: width }, (_, x) => x).filter(x => isRed(shot.at(x, 44)));
        await sleep(100);
    }
    const xOf = (/** @type {number} */ time) => ((time - low) / (high - low)) * width;
    assert.ok(Math.abs(columns[0] - xOf(times[gap - 1])) <= 1.5, `${columns[0]} for ${xOf(times[gap - 1])}`);
    assert.ok(Math.abs((columns.at(-1) ?? 0) + 1 - xOf(times[gap])) <= 1.5, `${columns.at(-1)} for ${xOf(times[gap])}`);
    await page.getByRole("button", { name: "Next gap" }).click();
    await page.waitForFunction(
        time => Math.abs(Number(document.getElementById("timeline")?.getAttribute("aria-valuenow")) - time) < 1100,
        times[gap - 1],
    );
});

test("a recording that was started from the page outlives the server, and is finished from the page", async () => {
    const radar = place.simulate();
    const server = await place.serve();
    const { port } = new URL(server.url);
    const page = await open("palette=dusk&size=300", server.url);
    await untilMode(page, "LIVE");
    await page.getByRole("button", { name: "Record", exact: true }).click();
    await page.getByRole("button", { name: "Stop recording" }).and(page.locator(":enabled")).waitFor();
    server.child.kill("SIGKILL");
    await untilMode(page, "NO CONNECTION");
    await place.serve(Number(port));
    await untilMode(page, "LIVE");
    await page.getByRole("button", { name: "Stop recording" }).and(page.locator(":enabled")).click();
    await page.getByRole("button", { name: "Record", exact: true }).and(page.locator(":enabled")).waitFor();
    await finish(radar);
    const list = JSON.parse(await place.run("ls", place.root, "--json"));
    assert.equal(list.recordings.length, 2);
    assert.equal(list.recordings[0].state, "finished");
    const report = JSON.parse(await place.run("verify", place.root, "--json").catch(error => error.stdout));
    assert.equal(report.total.damaged ?? 0, 0);
});

test("a viewer that takes nothing leaves the other one its picture", async () => {
    const radar = place.simulate();
    const { host, hostname, port } = new URL(url);
    const stopped = connect(Number(port), hostname);
    stopped.write(
        `GET /api/v1/live HTTP/1.1\r\nHost: ${host}\r\nOrigin: http://${host}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n` +
            "Sec-WebSocket-Key: a2VzdG92YWtlc3RvdmFrZQ==\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: kestova.v1\r\n\r\n",
    );
    const [head] = await once(stopped, "data");
    assert.match(String(head), /^HTTP\/1.1 101/);
    stopped.pause();
    const text = Buffer.from(JSON.stringify({ type: "open", picture: "a", radar: "A1:2/1", id: "live" }));
    stopped.write(Buffer.concat([Buffer.from([0x81, 0x80 | text.length, 0, 0, 0, 0]), text]));
    const page = await open("palette=dusk&size=300");
    await untilMode(page, "LIVE");
    const spokes = await untilFact(page, "spokes", value => value > 0);
    await untilFact(page, "spokes", value => value > spokes + 3 * cRows);
    stopped.destroy();
    await finish(radar);
});

test("with a token the page asks for it, shows the picture and downloads a part", async () => {
    const file = join(place.folder, "token");
    await writeFile(file, "a-token-of-this-test-0123456789\n", { mode: 0o600 });
    const { url: guarded } = await place.serve(0, "--token-file", file);
    const page = await open(`id=${recorded.id}&palette=dusk&size=300`, guarded);
    await page.getByLabel("Token").fill("a-token-of-this-test-0123456789");
    await page.getByRole("button", { name: "Go on" }).click();
    await untilMode(page, "REPLAY");
    await untilFact(page, "spokes", value => value > 0);
    await page.getByRole("button", { name: "Cut" }).click();
    const saving = page.waitForEvent("download");
    await page.getByRole("button", { name: "Download" }).click();
    const path = await (await saving).path();
    assert.ok((await readFile(path)).length > 100000);
    assert.doesNotMatch(page.url() + (await page.title()), /a-token/);
});
