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
for (const sum of sums.filter((text) => text.startsWith("The blocks of")))
  document.body.append(Object.assign(document.createElement("output"), { textContent: sum }));
