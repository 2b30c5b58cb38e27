// Elements by their id, and new ones; text stays text.

/**
 * @template {HTMLElement} [T=HTMLElement]
 * @param {string} id
 * @returns {T}
 */
export function element(id) {
    const found = document.getElementById(id);
    if (!found) throw new Error(`the page has no ${id}`);
    return /** @type {T} */ (found);
}

/**
 * @template {keyof HTMLElementTagNameMap} K
 * @param {K} name
 * @param {{ [key: string]: string | undefined }} attributes `text` is its content
 * @param {Node[]} children
 * @returns {HTMLElementTagNameMap[K]}
 */
export function make(name, attributes = {}, children = []) {
    const made = document.createElement(name);
    for (const [key, value] of Object.entries(attributes)) {
        if (value === undefined) continue;
        if (key === "text") made.textContent = value;
        else made.setAttribute(key, value);
    }
    made.append(...children);
    return made;
}

/** @param {string} id @param {() => void} action */
export function onClick(id, action) {
    element(id).addEventListener("click", action);
}

/**
 * Shows names and values, in place where they are the same ones.
 * @param {HTMLElement} list a dl
 * @param {[string, string][]} facts
 */
export function showFactList(list, facts) {
    if (list.children.length !== facts.length * 2)
        list.replaceChildren(...facts.flatMap(([name]) => [make("dt", { text: name }), make("dd")]));
    facts.forEach(([, text], i) => {
        const value = list.children[i * 2 + 1];
        if (value.textContent !== text) value.textContent = text;
    });
}
