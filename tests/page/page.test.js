// The page alone, before a mock server with a computed radar.

import assert from "node:assert/strict";
import { after, afterEach, before, test } from "node:test";
import { launch } from "./browser.js";
import { expectedPicture } from "./expected.js";
import { cCells, cSpokes, cTargets, cellsOf } from "./mock/radar.js";
import { cGap, cMarkup, cRecordings, serveMock } from "./mock/server.js";
import { pixelsOf } from "./png.js";

const cExact = "palette=grey&overlays=0&size=600&up=north";
const cNightLimit = 85; // a third of full brightness
const [cFirst, cSecond] = cRecordings;

/** @type {import("playwright-core").Browser} */
let browser;
/** @type {Awaited<ReturnType<typeof serveMock>>} */
let mock;
/** @type {import("playwright-core").Page[]} */
const pages = [];

before(async () => {
    [browser, mock] = await Promise.all([launch(), serveMock()]);
});
afterEach(async () => {
    for (const page of pages.splice(0)) await page.context().close();
    for (const key of Object.keys(mock.options)) delete (/** @type {any} */ (mock.options)[key]);
});
after(async () => {
    await browser.close();
    await mock.close();
});

/** @param {string} hash @param {(page: import("playwright-core").Page) => Promise<unknown>} [first] before the page loads */
async function open(hash, first) {
    const context = await browser.newContext({ viewport: { width: 1280, height: 1000 } });
    const page = await context.newPage();
    page.setDefaultTimeout(60000);
    pages.push(page);
    await first?.(page);
    await page.goto(`${mock.url}#${hash}`, { waitUntil: "commit" });
    return page;
}

/** @param {import("playwright-core").Page} page */
const picture = (page, name = "Radar picture") => page.getByRole("img", { name, exact: true });

/** @param {import("playwright-core").Page} page @param {string} text that the mode begins with */
const untilMode = (page, text) =>
    page
        .getByRole("status", { name: "Mode" })
        .filter({ hasText: new RegExp(`^${text}`) })
        .waitFor();

/** Opens a place in a recording, paused, and waits until its picture is whole. @param {string} more @param {string} id */
async function openPaused(more, id = cFirst.id, at = cFirst.first_ms + 60000) {
    const page = await open(`id=${id}&t=${at}&${more}`);
    await untilMode(page, "REPLAY");
    await page.getByRole("button", { name: "Play", exact: true }).waitFor();
    await page.waitForFunction(() => document.getElementById("picture-a")?.dataset.whole === "true");
    return page;
}

/** The values of a grey picture. @param {import("playwright-core").Page} page */
async function greyOf(page) {
    const shot = pixelsOf(await picture(page).screenshot());
    return Uint8Array.from(
        { length: shot.width * shot.height },
        (_, i) => shot.at(i % shot.width, Math.floor(i / shot.width))[0],
    );
}

const rowsOf = (/** @type {boolean} */ hasIsland) =>
    Array.from({ length: cSpokes }, (_, row) => cellsOf(row, hasIsland));

/** @param {Uint8Array} got @param {{ least: Uint8Array, most: Uint8Array }} wanted */
function assertShown(got, { least, most }) {
    assert.equal(got.length, least.length);
    const other = got.findIndex((value, i) => value < least[i] - 1 || value > most[i] + 1);
    const [low, high] = [least[other], most[other]];
    assert.equal(other, -1, `pixel ${other % 600},${Math.floor(other / 600)}: ${got[other]} for ${low} to ${high}`);
}

test("a pixel is the brightest of its cells and nothing beyond, for every target", async () => {
    const page = await openPaused(cExact);
    const wanted = expectedPicture(600, cCells / 300, rowsOf(true));
    assertShown(await greyOf(page), wanted);
    const seen = cTargets.filter(({ row, cell }) => {
        const away = ((cell + 0.5) / cCells) * 300;
        const bearing = ((row + 0.5) / cSpokes) * 2 * Math.PI;
        const [x, y] = [300 + Math.sin(bearing) * away, 300 - Math.cos(bearing) * away].map(Math.floor);
        return wanted.least[y * 600 + x] === 250;
    });
    assert.equal(seen.length, 200);
});

test("cells of two bytes give the same picture, and so does a context that was lost", async () => {
    Object.assign(mock.options, { bytes: 2 });
    const page = await openPaused(cExact);
    const wanted = expectedPicture(600, cCells / 300, rowsOf(true));
    assertShown(await greyOf(page), wanted);
    const frames = await picture(page).getAttribute("data-frames");
    await page.evaluate(() => {
        const canvas = /** @type {HTMLCanvasElement} */ (document.getElementById("picture-a"));
        const context = canvas.getContext("webgl2")?.getExtension("WEBGL_lose_context");
        canvas.addEventListener("webglcontextlost", () => setTimeout(() => context?.restoreContext()));
        canvas.addEventListener("webglcontextrestored", () => (canvas.dataset.restored = "1"));
        context?.loseContext();
    });
    await page.waitForFunction(old => {
        const { restored, frames: now } = document.getElementById("picture-a")?.dataset ?? {};
        return restored === "1" && now !== old;
    }, frames);
    assertShown(await greyOf(page), wanted);
});

test("two pictures differ where only one of them has echoes", async () => {
    const page = await openPaused(`palette=dusk&overlays=0&size=300&second=${cSecond.id}`);
    await page.waitForFunction(() => document.getElementById("picture-b")?.dataset.whole === "true");
    const shot = pixelsOf(await picture(page, "Difference picture").screenshot());
    const [island, sea] = [shot.at(250, 160), shot.at(60, 60)];
    assert.ok(island[0] > 100 && island[0] > island[2] * 1.5, `the island is in the first picture alone: ${island}`);
    assert.deepEqual([...sea], [7, 20, 33]);
});

test("at night nothing is brighter than a third, from the first paint on", async () => {
    const page = await open("palette=night", early => early.route("**/main.js", route => route.abort()));
    await page.locator("#loading").waitFor();
    const look = async (/** @type {string} */ what) =>
        assert.ok(pixelsOf(await page.screenshot()).brightest() <= cNightLimit, `${what} is too bright`);
    await look("the page while it loads");
    await page.unroute("**/main.js");
    await page.reload();
    await untilMode(page, "LIVE");
    await page.waitForFunction(() => document.getElementById("picture-a")?.dataset.whole === "true");
    await page.keyboard.press("Tab");
    await look("the picture");
    await page.getByRole("list", { name: "Recordings" }).getByRole("button").first().click();
    await untilMode(page, "REPLAY");
    await page.getByRole("button", { name: "Note", exact: true }).click();
    await page.getByLabel("Text").fill("squall");
    await look("a dialog");
    await page.keyboard.press("Escape");
    await mock.close();
    await untilMode(page, "NO CONNECTION");
    await look("the page without its server");
    mock = await serveMock(mock.port);
});

test("a lost server is shown, and the page comes back by itself to the same place", async () => {
    const page = await openPaused("palette=dusk&size=200");
    await page.getByRole("slider", { name: "Timeline" }).press("ArrowRight");
    const place = await page.getByRole("slider", { name: "Timeline" }).getAttribute("aria-valuenow");
    assert.equal(Number(place), cFirst.first_ms + 61000 + (Number(place) % 1000));
    await mock.close();
    await untilMode(page, "NO CONNECTION");
    mock = await serveMock(mock.port);
    await untilMode(page, "REPLAY");
    assert.ok(Math.abs(Number(await picture(page).getAttribute("data-time-ms")) - Number(place)) <= 2500);
});

test("a radar that goes silent is not left looking live", async () => {
    const page = await open("palette=dusk");
    await untilMode(page, "LIVE");
    Object.assign(mock.options, { isSilent: true });
    await untilMode(page, "STALE");
    assert.equal(await page.locator("#face-a").isVisible(), true);
});

test("the keyboard alone does everything", async () => {
    const page = await openPaused("palette=dusk");
    const slider = page.getByRole("slider", { name: "Timeline" });
    const now = async () => Number(await slider.getAttribute("aria-valuenow"));
    const start = await now();
    await page.locator("body").press(".");
    await page.waitForFunction(
        was => Number(document.getElementById("timeline")?.getAttribute("aria-valuenow")) >= was + 2500,
        start,
    );
    await slider.press("PageUp");
    assert.ok((await now()) >= start + 62500);
    assert.match((await slider.getAttribute("aria-valuetext")) ?? "", /^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}$/);
    await page.locator("body").press("g");
    await page.waitForFunction(
        gap => Number(document.getElementById("timeline")?.getAttribute("aria-valuenow")) === gap,
        cGap.from,
    );
    await picture(page).press("ArrowRight");
    await page.getByText("000.5°").first().waitFor();
    await page.locator("body").press("-");
    assert.equal(await page.getByRole("combobox", { name: "Range" }).inputValue(), String(3 * 1852));
    await page.locator("body").press("f");
    await untilMode(page, "FROZEN");
    await page.locator("body").press("l");
    await untilMode(page, "LIVE");
    await page.locator("body").press("r");
    await page.getByRole("status", { name: "Messages" }).filter({ hasText: "Recording A1:2/1" }).waitFor();
});

test("a click on a gap of the timeline goes there", async () => {
    const page = await openPaused("palette=dusk");
    const slider = page
        .getByRole("slider", { name: "Timeline" })
        .and(page.locator(`[aria-valuemin='${cFirst.first_ms}']`));
    const [low, high] = await Promise.all(
        ["aria-valuemin", "aria-valuemax"].map(async name => Number(await slider.getAttribute(name))),
    );
    const box = await slider.boundingBox();
    assert.ok(box);
    const at = (cGap.from + cGap.to) / 2;
    const position = { x: ((at - low) / (high - low)) * box.width, y: 32 };
    const end = Date.now() + 60000;
    while (!(await page.locator("#timeline-tip").textContent())?.includes("nothing for 01:00 min") && Date.now() < end)
        await slider.hover({ position });
    await slider.click({ position });
    assert.equal(Number(await slider.getAttribute("aria-valuenow")), cGap.from);
});

test("a link shows the same again, and the token is in no address", async () => {
    const page = await openPaused("palette=dusk&token=secret&range_m=5556&up=head&gain=60&threshold=10&a=1000&b=2000");
    await page.waitForFunction(() => /t=\d+/.test(location.hash) && location.hash.includes("gain=60"));
    const address = page.url();
    assert.doesNotMatch(address, /secret|token/);
    const again = await open(address.slice(address.indexOf("#") + 1));
    await untilMode(again, "REPLAY");
    await again.waitForFunction(() => document.getElementById("picture-a")?.dataset.whole === "true");
    for (const name of ["Range", "Palette"]) {
        const both = [page, again].map(one => one.getByRole("combobox", { name }).inputValue());
        assert.equal(await both[1], await both[0]);
    }
    assert.equal(await again.getByRole("slider", { name: "Gain" }).inputValue(), "60");
    const place = Number(/t=(\d+)/.exec(address)?.[1]);
    const shown = Number(await picture(again).getAttribute("data-time-ms"));
    assert.ok(shown <= place && shown > place - 2500, `${shown} for ${place}`);
});

test("text from outside is text, everything comes from the server, and little of it", async () => {
    /** @type {string[]} */
    const foreign = [];
    let bytes = 0;
    const page = await open("palette=dusk", async early => {
        early.on(
            "request",
            request =>
                request.url().startsWith(mock.url) || request.url().startsWith("blob:") || foreign.push(request.url()),
        );
        early.on("response", async response => {
            if (!response.url().includes("/api/")) bytes += (await response.body().catch(() => Buffer.alloc(0))).length;
        });
    });
    await untilMode(page, "LIVE");
    await page.getByRole("table", { name: "Targets" }).getByText(cMarkup).waitFor();
    await page.getByRole("row", { name: "gpsDev" }).click();
    assert.equal(await page.evaluate(() => /** @type {any} */ (window).broken), undefined);
    assert.equal(await page.locator("img[src='x']").count(), 0);
    assert.deepEqual(foreign, []);
    assert.ok(bytes > 50000 && bytes <= 250000, `${bytes} bytes`);
});

test("without WebGL2 a sentence says so", async () => {
    const page = await open("palette=dusk", early =>
        early.addInitScript(() => {
            HTMLCanvasElement.prototype.getContext = () => null;
        }),
    );
    await page.getByText("it has no WebGL2").first().waitFor();
});
