// Runs before anything is painted: the page has its palette from the first pixel on.
(() => {
    const asked = /[#&]palette=(day|dusk|night|grey)(&|$)/.exec(location.hash)?.[1];
    const kept = asked ?? localStorage.getItem("kestova-palette") ?? "day";
    document.documentElement.dataset.palette = /^(day|dusk|night)$/.test(kept) ? kept : "dusk";
})();
