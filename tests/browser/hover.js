// Put behind the page's own script by the test: moves the pointer over every cell of every picture, and says in
// the document what the tips added up to.
addEventListener("error", (event) => { document.body.dataset.error = event.message; });
const say = (text) => document.body.append(Object.assign(document.createElement("output"), { textContent: text }));
const countIn = (text) => Number(text.replaceAll(",", ""));
const tipsOf = (picture) => [...picture.querySelectorAll(".cell")].map((cell) => {
  (cell.firstChild ?? cell).dispatchEvent(new PointerEvent("pointermove", { bubbles: true }));
  const tip = document.getElementById("tip");
  if (tip.hidden || tip.textContent === "")
    document.body.dataset.error = "a cell without a tip";
  return tip.textContent;
});
document.querySelectorAll("svg").forEach(tipsOf);
// Says what the pattern's first group adds up to in the tips of each picture whose label begins so.
const saySums = (label, pattern) => {
  for (const picture of document.querySelectorAll(`svg[aria-label^="${label}"]`)) {
    const counts = tipsOf(picture).flatMap((tip) => [...tip.matchAll(pattern)].map((match) => countIn(match[1])));
    say(`${picture.getAttribute("aria-label")} ${counts.reduce((sum, count) => sum + count, 0)}`);
  }
};
// "levels: 1,024": the uses of the blocks of a cell. Then how many the bars of a histogram stand for, and what the
// segments of the journal's halves are.
saySums("The blocks of", /: ([\d,]+)$/gm);
saySums("Fill of", /\n([\d,]+) /g);
for (const half of document.querySelectorAll('svg[aria-label^="The transactions"]')) {
  const fates = {};
  for (const [, count, fate] of tipsOf(half).map((tip) => tip.match(/^([\d,]+) transactions?, (.*)$/m)))
    fates[fate] = (fates[fate] ?? 0) + countIn(count);
  say(`half: ${Object.keys(fates).sort().map((fate) => `${fates[fate]} ${fate}`).join(", ")}`);
}
// The first nodes, each after as many dots as it lies deep.
for (const id of [...document.querySelectorAll(".tree .id")].slice(0, 300)) {
  let depth = -1;
  for (let at = id.parentElement.closest("details, .tree > div, details > div"); at; at = at.parentElement.closest("details"))
    ++depth;
  say(`node ${".".repeat(depth)}${id.textContent} ${id.nextSibling.textContent}`);
}
