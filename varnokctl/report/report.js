"use strict";
(() => {
  const by = (id) => document.getElementById(id);
  const all = (selector, from = document) => [...from.querySelectorAll(selector)];
  const words = by("words"), level = by("level");
  const most_unfolded = 200; // findings of a rule
  let index = null;

  const lower = (element) => element.textContent.toLowerCase();
  const show = (entry, shown) => {
    if (entry.shown === shown) return;
    entry.shown = shown;
    entry.element.hidden = !shown;
  };
  const entry_of = (element) => ({ element, text: lower(element), level: element.className, shown: true });

  // Texts are read once. A table's rows stand in groups, whose heading counts for each of them.
  const build = () => ({
    findings: all("main .rule").map((element) => ({
      element, shown: true, text: lower(element.querySelector("h3")), rows: all("li", element).map(entry_of),
      folds: all("details", element),
    })),
    links: new Map(all(".hosts tbody tr").map((element) => [element.dataset.host, entry_of(element)])),
    hosts: all(".host").map((element) => ({
      element, shown: true, id: element.id, text: lower(element.querySelector("h2")), folds: all("details", element),
      groups: all(".find tbody", element).map((group) => {
        const head = group.querySelector(".group");
        return {
          element: group, shown: true, text: head ? lower(head) : "", fold: group.closest("details"),
          rows: all("tr:not(.group)", group).map(entry_of),
        };
      }),
    })),
  });

  const lacking = (terms, text) => terms.filter((term) => !text.includes(term));
  const fits = (row, terms, wanted) =>
    (wanted === "" || row.level === "c" || row.level === wanted) && terms.every((term) => row.text.includes(term));
  // What a search opened is closed again when it is over.
  const unfold = (fold, open) => {
    if (open && !fold.open) { fold.open = true; fold.dataset.opened = ""; }
    if (!open && "opened" in fold.dataset) { fold.open = false; delete fold.dataset.opened; }
  };
  const filter = (rows, terms, wanted) => {
    let hits = 0;
    for (const row of rows) {
      const fit = fits(row, terms, wanted);
      show(row, fit);
      hits += fit ? 1 : 0;
    }
    return hits;
  };

  const search = () => {
    index ??= build();
    const terms = words.value.toLowerCase().split(/\s+/).filter((term) => term !== "");
    const wanted = level.value;
    const active = terms.length !== 0 || wanted !== "";
    let rows = 0, hosts = 0, findings = 0;
    for (const rule of index.findings) {
      const hits = filter(rule.rows, lacking(terms, rule.text), wanted);
      show(rule, hits !== 0);
      for (const fold of rule.folds) {
        const inside = all("li:not([hidden])", fold).length;
        unfold(fold, active && inside !== 0 && inside <= most_unfolded);
      }
      findings += hits;
    }
    for (const host of index.hosts) {
      const left = lacking(terms, host.text);
      const open = new Set();
      const named = active && terms.length !== 0 && left.length === 0;
      let hits = 0;
      for (const group of host.groups) {
        const found = filter(group.rows, lacking(left, group.text), wanted);
        show(group, found !== 0);
        if (found !== 0 && group.fold && !named) open.add(group.fold);
        hits += found;
      }
      for (const fold of host.folds) unfold(fold, active && open.has(fold));
      const link = index.links.get(host.id);
      const fit = !active || hits !== 0 || (link !== undefined && fits(link, terms, wanted));
      show(host, fit);
      if (link !== undefined) show(link, fit);
      rows += hits;
      hosts += fit ? 1 : 0;
    }
    by("nothing").hidden = hosts !== 0 || findings !== 0;
    by("count").textContent = !active ? ""
      : `${rows} ${rows === 1 ? "row" : "rows"} on ${hosts} ${hosts === 1 ? "host" : "hosts"}, ${findings} ${findings === 1 ? "finding" : "findings"}`;
  };

  let due = 0;
  words.addEventListener("input", () => { clearTimeout(due); due = setTimeout(search, 80); });
  words.addEventListener("keydown", (event) => { if (event.key === "Escape") { words.value = ""; search(); } });
  level.addEventListener("change", search);
  addEventListener("keydown", (event) => {
    if (event.key === "/" && !event.target.closest("input, select")) { event.preventDefault(); words.focus(); }
  });
  // Paper has no lids.
  addEventListener("beforeprint", () => { for (const fold of all("details:not([open])")) { fold.open = true; fold.dataset.printed = ""; } });
  addEventListener("afterprint", () => { for (const fold of all("details[data-printed]")) { fold.open = false; delete fold.dataset.printed; } });
  (window.requestIdleCallback ?? setTimeout)(() => { index ??= build(); });
  by("search").hidden = false;
})();
