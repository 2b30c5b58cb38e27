// Keys that work wherever no text is being written.

/** @typedef {{ [key: string]: () => void }} Actions */

const cWriting = "input:not([type=range]):not([type=checkbox]), textarea, dialog *";

/** @param {Actions} actions by the key */
export function listenToKeys(actions) {
    addEventListener("keydown", event => {
        if (event.ctrlKey || event.altKey || event.metaKey || event.defaultPrevented) return;
        const target = /** @type {Element} */ (event.target);
        if (target.closest?.(cWriting)) return;
        const isPressed = event.key === " " && target.closest?.("button, select, input, [role=row]");
        const isChosen = event.key.length === 1 && target.closest?.("select");
        if (isPressed || isChosen || !Object.hasOwn(actions, event.key)) return;
        event.preventDefault();
        actions[event.key]();
    });
}
