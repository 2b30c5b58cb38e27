// What changes recordings: record, stop, note, keep, cut, and the replay onto the network.

import { download, get, post, withQuery } from "./api.js";
import { ask } from "./dialog.js";
import { element, onClick } from "./dom.js";
import { durationText, sizeText, timeText } from "./format.js";
import { attempt, say } from "./messages.js";
import { chosenRadar, refreshRadars } from "./radars.js";
import { view } from "./view.js";

/** @typedef {import("./types.js").Recording} Recording */
/**
 * @typedef {object} Place
 * @property {Recording | undefined} recording that is shown
 * @property {number} timeMs
 */

export class Recorder {
    /**
     * @param {() => Place} place
     * @param {() => Promise<unknown>} onChanged the recordings are others now
     */
    constructor(place, onChanged) {
        this.place = place;
        this.onChanged = onChanged;
        /** @type {import("./types.js").ServerInfo | null} */
        this.server = null;
        this.isSending = false;
        this.grown = { id: "", bytes: 0, at: 0, rate: 0 };
        onClick("record", () => attempt(() => this.record()));
        onClick("stop-recording", () => attempt(() => this.stop()));
        onClick("note", () => attempt(() => this.note()));
        onClick("keep", () => attempt(() => this.keep()));
        onClick("cut", () => attempt(() => this.cut()));
        onClick("send", () => attempt(() => this.send()));
    }

    async refresh() {
        this.server = await get("/server");
        this.isSending = Boolean((await get("/replay").catch(() => null))?.playing);
    }

    /** @param {Recording | undefined} running the recording of the chosen radar */
    show(running) {
        const allow = this.server?.allow;
        const { recording } = this.place();
        enable("record", Boolean(allow?.record && chosenRadar() && !chosenRadar()?.recording));
        enable("stop-recording", Boolean(allow?.record && chosenRadar()?.recording));
        enable("note", Boolean(allow?.record && recording));
        enable("keep", Boolean(allow?.record && recording));
        enable("cut", Boolean(recording));
        enable("send", Boolean(allow?.replay && (recording || this.isSending)));
        element("keep").setAttribute("aria-pressed", String(recording?.kept ?? false));
        element("send").textContent = this.isSending ? "Stop sending" : "Send to the network";
        element("recorder-state").textContent = this.stateText(running);
    }

    /** @param {Recording | undefined} running */
    stateText(running) {
        const root = this.server?.roots[0];
        const room = root ? `${sizeText(root.free_bytes)} free` : "";
        const rate = running ? this.rateOf(running) : 0;
        const left = root?.hours_left ?? (root && rate > 0 ? root.free_bytes / rate / 3600 : null);
        const hours = left === null ? "" : `, ${left.toFixed(left < 10 ? 1 : 0)} h left`;
        if (this.server && !this.server.allow.record && !running)
            return `${room}. Recording from here is off: kestova serve --allow-record`;
        if (!running) return `not recording · ${room}${hours}`;
        const long = durationText(running.last_ms - running.first_ms);
        return `● ${long} · ${sizeText(running.size_bytes)}${rate > 0 ? ` · ${sizeText(rate)}/s` : ""} · ${room}${hours}`;
    }

    /** @param {Recording} running */
    rateOf(running) {
        const { grown } = this;
        if (grown.id !== running.id)
            this.grown = {
                id: running.id,
                bytes: running.size_bytes,
                at: Date.now(),
                rate: 0,
            };
        else if (running.size_bytes !== grown.bytes) {
            const rate = ((running.size_bytes - grown.bytes) / (Date.now() - grown.at)) * 1000;
            this.grown = {
                id: running.id,
                bytes: running.size_bytes,
                at: Date.now(),
                rate,
            };
        }
        return this.grown.rate;
    }

    async record() {
        const radar = chosenRadar();
        if (!this.server?.allow.record)
            return say("Recording from the page is off: start kestova serve with --allow-record.");
        if (!radar) return say("There is no radar to record: choose one.");
        if (radar.recording) return say(`${radar.radar} is being recorded already.`);
        await post(`/radars/${encodeURIComponent(radar.serial)}/${radar.id}/record`);
        await this.changed();
        return say(`Recording ${radar.radar}. It goes on when this page or the server ends.`);
    }

    async stop() {
        const radar = chosenRadar();
        if (!radar?.recording) return say("Nothing is being recorded.");
        await post(`/recordings/${radar.recording}/stop`);
        await this.changed();
        return say("The recording is finished.");
    }

    async changed() {
        await refreshRadars();
        await this.onChanged();
    }

    async note() {
        const { recording, timeMs } = this.place();
        if (!recording) return say("There is no recording for a note here: open one, or record.");
        const given = await ask({
            title: `Note at ${timeText(timeMs)}`,
            fields: [{ name: "text", label: "Text", kind: "text" }],
            confirm: "Note it",
        });
        if (!given?.text?.trim()) return undefined;
        const at = Math.min(Math.max(Math.round(timeMs), recording.first_ms), recording.last_ms);
        const isRunning = recording.state === "recording" && timeMs >= recording.last_ms;
        await post(`/recordings/${recording.id}/note`, {
            text: given.text.trim(),
            at_ms: isRunning ? undefined : at,
        });
        await this.onChanged();
        return say("Noted.");
    }

    async keep() {
        const { recording } = this.place();
        if (!recording) return say("There is no recording to keep here: open one.");
        await post(`/recordings/${recording.id}/keep`, { kept: !recording.kept });
        await this.onChanged();
        return say(recording.kept ? "May be deleted again." : "Kept: nothing deletes it until you let it go.");
    }

    /** The part from A to B, or all of the recording. @param {Recording} recording */
    part(recording) {
        const isChosen = view.aMs > 0 && view.bMs > view.aMs;
        const from = isChosen ? Math.round(view.aMs) : recording.first_ms;
        return {
            from,
            to: isChosen ? Math.round(view.bMs) : recording.last_ms + 1,
            isChosen,
        };
    }

    async cut() {
        const { recording } = this.place();
        if (!recording) return say("There is no recording to cut here: open one.");
        const { from, to, isChosen } = this.part(recording);
        const given = await ask({
            title: isChosen ? "Download A to B" : "Download the whole recording",
            text: `${timeText(from)} to ${timeText(to)}, ${durationText(to - from)}`,
            fields: [
                {
                    name: "form",
                    label: "As",
                    kind: "select",
                    options: [
                        ["cut.tar", "a recording (tar), as kestova cut makes it"],
                        ["cut.pcap", "a capture for Wireshark (pcap)"],
                    ],
                },
            ],
            confirm: "Download",
        });
        if (!given) return undefined;
        return download(
            withQuery(`/recordings/${recording.id}/${given.form}`, {
                from_ms: from,
                to_ms: to,
            }),
        );
    }

    async send() {
        if (this.isSending) {
            await post("/replay/stop");
            this.isSending = false;
            return say("Nothing is sent to the network any more.");
        }
        const { recording, timeMs } = this.place();
        if (!recording) return say("There is no recording to send: open one.");
        const { from, to, isChosen } = this.part(recording);
        const start = isChosen ? from : Math.max(Math.round(timeMs), recording.first_ms);
        const given = await ask({
            title: "Send to the network",
            text:
                `${timeText(start)} to ${timeText(to)} goes onto the network as if the radar sent it now. ` +
                "Displays there take it for the live radar.",
            fields: [
                {
                    name: "map",
                    label: "To other groups (FROM=TO, with commas between several)",
                    kind: "text",
                    hint: "239.17.0.1=239.99.0.1",
                },
            ],
            confirm: "Send",
        });
        if (!given) return undefined;
        const map = given.map
            .split(",")
            .map(text => text.trim())
            .filter(Boolean);
        const speed = view.speed === "max" ? 10 : view.speed;
        await post("/replay", {
            id: recording.id,
            from_ms: start,
            to_ms: to,
            speed,
            map,
            confirm: true,
        });
        this.isSending = true;
        return say("It is being sent to the network.");
    }
}

/** @param {string} id @param {boolean} isPossible */
function enable(id, isPossible) {
    const button = /** @type {HTMLButtonElement} */ (element(id));
    if (button.disabled === isPossible) button.disabled = !isPossible;
}
