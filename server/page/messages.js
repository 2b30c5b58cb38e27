// What the page has to say: what happened, and what to do about it.

const cShownMs = 12000;

const place = /** @type {HTMLElement} */ (document.getElementById("messages"));
let hiding = 0;

/**
 * @param {string} text
 * @param {"plain" | "alarm"} kind
 */
export function say(text, kind = "plain") {
    clearTimeout(hiding);
    place.textContent = text;
    place.dataset.kind = kind;
    if (text) hiding = window.setTimeout(() => say(""), cShownMs);
}

/** Says why something failed. @param {unknown} error */
export function sayFailure(error) {
    if (error instanceof DOMException && error.name === "AbortError") return;
    say(error instanceof Error ? error.message : String(error), "alarm");
}

/** Runs it and says why if it fails. @param {() => Promise<unknown>} work */
export async function attempt(work) {
    try {
        await work();
    } catch (error) {
        sayFailure(error);
    }
}
