// Put behind the page's own script by the test: moves the pointer over every cell of every picture, and says in
// the document what the tips added up to.
addEventListener("error", (event) => { document.body.dataset.error = event.message; });
const sums = [];
for (const picture of document.querySelectorAll("svg")) {
  let blocks = 0;
  for (const cell of picture.querySelectorAll(".cell")) {
    (cell.firstChild ?? cell).dispatchEvent(new PointerEvent("pointermove", { bubbles: true }));
    const tip = document.getElementById("tip");
    if (tip.hidden || tip.textContent === "")
      document.body.dataset.error = "a cell without a tip";
    // "levels: 1,024": the uses of the blocks of a cell.
    for (const [, count] of tip.textContent.matchAll(/: ([\d,]+)$/gm))
      blocks += Number(count.replaceAll(",", ""));
  }
  sums.push(`${picture.getAttribute("aria-label")} ${blocks}`);
}
const say = (text) => document.body.append(Object.assign(document.createElement("output"), { textContent: text }));
sums.filter((text) => text.startsWith("The blocks of")).forEach(say);
// How many the bars of a histogram stand for, and what the segments of the journal's halves are.
const tipsOf = (picture) => [...picture.querySelectorAll(".cell")].map((cell) => {
  (cell.firstChild ?? cell).dispatchEvent(new PointerEvent("pointermove", { bubbles: true }));
  return document.getElementById("tip").textContent;
});
for (const chart of document.querySelectorAll('svg[aria-label^="Fill of"]')) {
  const count = tipsOf(chart).reduce((sum, tip) => sum + Number(tip.match(/\n([\d,]+) /)[1].replaceAll(",", "")), 0);
  say(`${chart.getAttribute("aria-label")} ${count}`);
}
for (const half of document.querySelectorAll('svg[aria-label^="The transactions"]')) {
  const fates = {};
  for (const [, count, fate] of tipsOf(half).map((tip) => tip.match(/^([\d,]+) transactions?, (.*)$/m)))
    fates[fate] = (fates[fate] ?? 0) + Number(count.replaceAll(",", ""));
  say(`half: ${Object.keys(fates).sort().map((fate) => `${fates[fate]} ${fate}`).join(", ")}`);
}
// The first nodes, each after as many dots as it lies deep.
for (const id of [...document.querySelectorAll(".tree .id")].slice(0, 300)) {
  let depth = -1;
  for (let at = id.parentElement.closest("details, .tree > div, details > div"); at; at = at.parentElement.closest("details"))
    ++depth;
  say(`node ${".".repeat(depth)}${id.textContent} ${id.nextSibling.textContent}`);
}
