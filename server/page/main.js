// The page: brings its parts together.

import { onAddress, link, readAddress, setPlace } from "./address.js";
import { Refusal } from "./api.js";
import { beginControls, fillList, nextRange } from "./controls.js";
import { listenTo } from "./cursor.js";
import { Screen } from "./display.js";
import { element, onClick } from "./dom.js";
import { timeText } from "./format.js";
import { listenToKeys } from "./keys.js";
import { attempt, say, sayFailure } from "./messages.js";
import { modeOf } from "./mode.js";
import { showClock, showFacts } from "./panels.js";
import { chosenRadar, radars, refreshRadars } from "./radars.js";
import { Recorder } from "./recorder.js";
import { Recordings } from "./recordings.js";
import { Session } from "./session.js";
import { Streams } from "./streams.js";
import { Timeline } from "./timeline.js";
import { takeTokenFromAddress } from "./token.js";
import { askForToken, isWaitingForToken } from "./tokenform.js";
import { choose, onView, rememberedChoice, view } from "./view.js";

const cGap = 10; // between pictures

takeTokenFromAddress();
choose(rememberedChoice());
const session = new Session({
    changed: showState,
    lost: showLost,
    apart,
    opened: showOpened,
    streams: showStreams,
});
session.wantedMs = readAddress();
const difference = new Screen("d", [session.a, session.b]);
session.a.screen.scaled = session.b.screen.scaled = [session.a, session.b];
const screens = [session.a.screen, session.b.screen, difference];
const timeline = new Timeline(seek);
const recordings = new Recordings(openRecording);
const streams = new Streams(() => ({
    id: shownRecording()?.id ?? "",
    placeMs: session.placeMs,
}));
const recorder = new Recorder(
    () => ({
        recording: shownRecording(),
        timeMs: session.placeMs || Date.now(),
    }),
    async () => {
        await recordings.refresh();
        timeline.fetchSoon(0);
    },
);

/** The recording that the picture comes from, or could come from. */
function shownRecording() {
    return recordings.find(view.id === "live" ? (chosenRadar()?.recording ?? "") : view.id);
}

/** How far two recordings lie apart that have no time in common: then they are compared from their beginnings on. */
function apart() {
    const [first, second] = [recordings.find(view.id), recordings.find(view.second)];
    const isApart = first && second && (first.last_ms < second.first_ms || second.last_ms < first.first_ms);
    return isApart ? second.first_ms - first.first_ms : 0;
}

/** @param {import("./types.js").Recording} recording */
function openRecording(recording) {
    session.wantedMs = recording.first_ms;
    session.plays = true;
    choose({ id: recording.id, aMs: 0, bMs: 0 });
}

/** @param {number} timeMs */
function seek(timeMs) {
    const shown = shownRecording();
    if (shown && timeMs >= shown.first_ms && timeMs <= Math.max(shown.last_ms, timeline.lastMs))
        return session.seek(timeMs);
    const other = recordings.at(timeMs, chosenRadar()?.serial ?? "")?.id ?? timeline.recordingAt(timeMs);
    if (!other || other === shown?.id) return shown ? session.seek(timeMs) : say("Nothing was recorded then.");
    session.wantedMs = timeMs;
    session.plays = session.state?.playing ?? false;
    return choose({ id: other });
}

function showState() {
    const { state, isFrozen } = session;
    const isPlaying = !isFrozen && (state?.playing ?? true);
    element("play").textContent = isPlaying ? "Pause" : "Play";
    element("freeze").setAttribute("aria-pressed", String(isFrozen));
    element("loop").setAttribute("aria-pressed", String(session.isLooping));
    element("live").setAttribute("aria-pressed", String(session.isLive && !isFrozen));
    const thinned = state?.thinned_spokes ? `${state.thinned_spokes} spokes left out: this viewer was too slow` : "";
    const missing = state?.missing_on_wire ? `${state.missing_on_wire} missing on the wire` : "";
    const behind =
        state?.behind_ms && state.behind_ms > 1000 ? `${(state.behind_ms / 1000).toFixed(0)} s behind live` : "";
    element("detail").textContent = [behind, missing, thinned].filter(Boolean).join(" · ");
    showMode();
}

function showMode() {
    const now = performance.now();
    const { word, more } = modeOf(factsOf(session.a, now));
    const text = more ? `${word} · ${more}` : word;
    const mode = element("mode");
    if (mode.textContent !== text) mode.textContent = text;
    mode.dataset.mode = word;
    for (const display of session.displays) showFace(display, now);
}

/** @param {import("./display.js").Display} display @param {number} now */
function factsOf({ letter, state, heardAt }, now) {
    const { isConnected, isFrozen } = session;
    const asked = letter === "a" ? view.id : view.second;
    const silentMs = now - Math.max(heardAt, openedAt);
    return { isConnected, isFrozen, state, isRecording: !asked.startsWith("live"), silentMs };
}

/**
 * Marks a picture over its face when it is not what it seems.
 * @param {import("./display.js").Display} display
 * @param {number} now
 */
function showFace(display, now) {
    const facts = factsOf(display, now);
    const { word } = modeOf(facts);
    const { face } = display;
    const isBad = word === "STALE" || word === "NO CONNECTION";
    face.hidden = !isBad && word !== "FROZEN";
    face.dataset.kind = isBad ? "alarm" : "quiet";
    const seconds = Math.floor((facts.isConnected ? facts.silentMs : now - lostAt) / 1000);
    face.dataset.title = isBad ? `${word} · ${seconds} s` : word;
    if (display.isDimmed === isBad) return;
    display.isDimmed = isBad;
    for (const screen of screens) screen.relook();
}

let openedAt = performance.now();
let lostAt = performance.now();

function showOpened() {
    openedAt = performance.now();
    element("loading").hidden = true;
    refresh();
    showState();
}

/** @param {number} code of the end of the connection */
function showLost(code) {
    lostAt = performance.now();
    if (code === 1013) say("This page was too slow for the server; it comes back.");
    showMode();
    attemptQuietly(refresh);
}

/** @param {import("./types.js").StreamRow[]} rows */
function showStreams(rows) {
    streams.show(rows, session.isLive ? Date.now() : session.placeMs);
}

/** @param {() => Promise<unknown>} work */
function attemptQuietly(work) {
    work().catch(() => {});
}

async function refresh() {
    try {
        await Promise.all([recorder.refresh(), refreshRadars()]);
        if (!element("loading").hidden && session.isConnected) element("loading").hidden = true;
    } catch (error) {
        if (error instanceof Refusal && error.status === 401) {
            session.connection.stop();
            askForToken(start);
        } else if (!(error instanceof Refusal && error.status === 0)) sayFailure(error);
    }
    showSecond();
}

function showSecond() {
    /** @type {[string, string][]} */
    const options = [["", "none"]];
    for (const { radar } of radars()) options.push([`live:${radar}`, `live ${radar}`]);
    for (const one of recordings.all.slice(0, 40))
        options.push([one.id, `${timeText(one.first_ms).slice(0, 19)} ${one.radar}`]);
    if (!options.some(([value]) => value === view.second)) options.push([view.second, view.second]);
    fillList(/** @type {HTMLSelectElement} */ (element("second")), options, view.second);
}

// The timeline shows the recording that is open; live it shows the one that is running, or the last ten minutes.
function showSpan() {
    const shown = shownRecording();
    const id = shown?.id ?? "";
    const isNew = id !== timeline.id || timeline.isFresh;
    const now = session.isLive && session.placeMs > 0 ? session.placeMs : Date.now();
    if (shown && isNew) timeline.show(id, shown.first_ms, shown.last_ms);
    else if (shown) timeline.extend(Math.max(shown.last_ms, shown.state === "recording" ? now : 0));
    else if (isNew) timeline.show("", now - 6e5, now);
    else if (view.id === "live") timeline.extend(now, now - 6e5);
    timeline.isFresh = false;
}

function layOut() {
    const stage = element("stage");
    const isTwo = view.second !== "";
    session.b.screen.place.hidden = difference.place.hidden = !isTwo;
    const width = stage.clientWidth - 2 * cGap;
    const height = stage.clientHeight - 2 * cGap;
    const inOneRow = Math.min((width - 2 * cGap) / 3, height);
    const inTwoRows = Math.min((width - cGap) / 2, (height - cGap) / 2);
    const room = isTwo ? Math.max(inOneRow, inTwoRows) : Math.min(width, height);
    const size = view.size || Math.max(Math.floor(room), 64);
    for (const screen of screens) if (!screen.place.hidden && screen.css !== size) screen.resize(size);
    for (const screen of screens) screen.snap();
}

function beginScreens() {
    for (const screen of screens) {
        if (screen.place.hidden) continue;
        screen.begin();
        screen.resight();
    }
}

/** @param {import("./display.js").Display} display */
function captionOf(display) {
    if (!display.screen.picture) return display.screen.caption.textContent ?? "";
    if (!view.second) return display.store.knowsRange ? "" : "the spokes say no range";
    const id = display === session.a ? view.id : view.second;
    const recording = recordings.find(id);
    const what = recording?.name ?? (id === "live" ? `live ${view.radar}` : id.replace("live:", "live "));
    return `${display.letter.toUpperCase()} · ${what} · ${display.store.newestMs > 0 ? timeText(display.store.newestMs) : ""}`;
}

function frame() {
    requestAnimationFrame(frame);
    for (const display of session.displays) if (display.screen.draw()) display.writeFacts();
    difference.draw();
}

function tick() {
    showMode();
    showClock(session.placeMs);
    showFacts(session.a);
    for (const display of session.displays) display.screen.caption.textContent = captionOf(display);
    showSpan();
    timeline.setNow(session.placeMs);
    recorder.show(recordings.find(chosenRadar()?.recording ?? ""));
    setPlace(view.id === "live" && session.isLive ? 0 : session.placeMs || session.wantedMs, session.state?.id ?? "");
    for (const { screen, store } of session.displays) if (store.hasOldRows()) screen.recolour();
}

function beginTransport() {
    const hasRecording = () => Boolean(chosenRadar()?.recording);
    const actions = {
        play: () => session.togglePlay(hasRecording()),
        live: () => session.live(),
        freeze: () => session.freeze(!session.isFrozen),
        "next-turn": () => session.step("turn", 1),
        "previous-turn": () => session.step("turn", -1),
        "next-spoke": () => session.step("spoke", 1),
        "next-record": () => session.step("record", 1),
        "next-note": () => session.step("note", 1),
        "next-gap": () => session.step("gap", 1),
        "mark-a": () => choose({ aMs: session.placeMs }),
        "mark-b": () => choose({ bMs: session.placeMs }),
        loop: () => (session.loop(), showState()),
        "zoom-in": () => timeline.zoom(0.5),
        "zoom-out": () => timeline.zoom(2),
        "zoom-whole": () => timeline.whole(),
        link: () => copyLink(),
    };
    for (const [id, action] of Object.entries(actions)) onClick(id, action);
    const click = (/** @type {string} */ id) => () => element(id).click();
    listenToKeys({
        " ": actions.play,
        ".": actions["next-turn"],
        ",": actions["previous-turn"],
        g: actions["next-gap"],
        l: actions.live,
        f: actions.freeze,
        r: () => attempt(() => recorder.record()),
        n: () => attempt(() => recorder.note()),
        "+": () => nextRange(1, session.a.screen.rangeM),
        "-": () => nextRange(-1, session.a.screen.rangeM),
        "]": click("mark-b"),
        "[": click("mark-a"),
    });
}

async function copyLink() {
    try {
        await navigator.clipboard.writeText(link());
        say("The link to this place and view is copied.");
    } catch {
        say(link());
    }
}

/** @param {Set<keyof import("./view.js").Choice>} changed */
function followView(changed) {
    const has = (/** @type {(keyof import("./view.js").Choice)[]} */ ...keys) => keys.some(key => changed.has(key));
    if (has("id", "radar")) reopen();
    else if (has("second")) openSecond();
    if (has("second", "size")) layOut();
    if (has("second", "trailsS")) {
        for (const display of session.displays) display.trails.setLength(view.trailsS);
        beginScreens();
    }
    if (has("speed") && session.state?.speed !== view.speed) session.setSpeed(view.speed);
    if (has("up")) for (const display of session.displays) display.store.setUp(view.up);
    if (has("palette", "gain", "threshold")) for (const screen of screens) screen.relook();
    for (const screen of screens) screen.resight();
    if (has("utc")) showClock(session.placeMs);
}

function openSecond() {
    if (!session.isConnected) return;
    session.b.reset();
    session.openSecond(session.isLive ? undefined : session.placeMs);
    if (session.state?.playing) session.sendBoth({ type: "play" });
}

function reopen() {
    if (!session.isConnected) return;
    session.open();
    if (!recordings.find(view.id)) recordings.refresh();
    recordings.draw();
    showState();
}

async function start() {
    await refresh();
    if (isWaitingForToken()) return;
    await recordings.refresh();
    session.connection.connect();
}

beginControls();
for (const display of session.displays) {
    display.store.up = view.up;
    listenTo(display.screen);
}
listenTo(difference);
layOut();
beginScreens();
beginTransport();
recordings.onChange = showSecond;
element("radar").onchange = () =>
    choose({
        radar: /** @type {HTMLSelectElement} */ (element("radar")).value,
        id: session.isLive ? "live" : view.id,
    });
element("second").onchange = () =>
    choose({
        second: /** @type {HTMLSelectElement} */ (element("second")).value,
    });
new ResizeObserver(layOut).observe(element("stage"));
onView(followView);
onAddress(placeMs => {
    if (placeMs > 0 && session.isConnected) session.seek(placeMs);
});
setInterval(tick, 250);
setInterval(() => document.hidden || isWaitingForToken() || attemptQuietly(refresh), 5000);
start();
frame();
