// What all pictures are made of: elements, numbers for people, and the tip that follows the pointer.

function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes))
    made.setAttribute(key, value);
  made.append(...children);
  return made;
}

function drawn(name, attributes = {}, ...children) {
  const made = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes))
    made.setAttribute(key, value);
  made.append(...children);
  return made;
}

function picture(width, height, label) {
  return drawn("svg", { viewBox: `0 0 ${width} ${height}`, role: "img", "aria-label": label });
}

const number = (value) => value.toLocaleString("en-US");
const counted = (count, thing) => `${number(count)} ${thing}${count === 1 ? "" : "s"}`;
const percent = (part, whole) => (whole === 0 ? "0 %" : `${((100 * part) / whole).toFixed(1)} %`);

function size(bytes) {
  const units = ["bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"];
  let unit = 0;
  while (bytes >= 1024 && unit + 1 < units.length) {
    bytes /= 1024;
    unit += 1;
  }
  return `${Number(bytes.toFixed(bytes < 10 ? 2 : 1))} ${units[unit]}`;
}

// A number that can be found in the page by the name of what it counts.
function fact(name, value, tag = "span", attributes = {}) {
  return element(tag, { "data-fact": name, ...attributes }, number(value));
}

// What the tip says over an element.
const tips = new WeakMap();

function withTip(shape, text) {
  tips.set(shape, text);
  return shape;
}

function showTip(event) {
  const tip = document.getElementById("tip");
  const text = tips.get(event.target) ?? tips.get(event.target.parentNode);
  tip.hidden = text === undefined;
  if (text === undefined)
    return;
  tip.textContent = text;
  const room = document.documentElement;
  tip.style.left = `${Math.max(4, Math.min(event.clientX + 14, room.clientWidth - tip.offsetWidth - 4))}px`;
  const below = event.clientY + 16;
  const fits = below + tip.offsetHeight < room.clientHeight;
  tip.style.top = `${fits ? below : Math.max(4, event.clientY - tip.offsetHeight - 10)}px`;
}

// Later sets of a kind of chain are paler, five of them told apart: "tail 2" has the colour of "tail".
const strengths = [1, 0.8, 0.6, 0.45, 0.3];

function colour(use) {
  const [kind, set] = use.split(" ");
  const name = kind === "empty" ? "free" : kind;
  const attributes = { fill: `var(--${name})` };
  if (set !== undefined)
    attributes["fill-opacity"] = strengths[set] ?? strengths.at(-1);
  return attributes;
}

// A cell of blocks: one colour, or a band for each use, none too thin to be seen.
function cellShape(x, y, side, shares, uses, blocks) {
  const cell = drawn("g", { class: "cell" });
  const least = side / 2 / shares.length;
  const spare = side - least * shares.length;
  let top = y;
  for (const [use, count] of shares) {
    const height = shares.length === 1 ? side : Math.max(0.5, least + (spare * count) / blocks);
    cell.append(drawn("rect", { x, y: top.toFixed(2), width: side, height: height.toFixed(2),
      ...colour(uses[use]) }));
    top += height;
  }
  return cell;
}

// The blocks of a file as cells in rows, with the number of the first block before every fourth row.
function blockMap(name, facts, label) {
  const { block_count: blockCount, per_cell: perCell, uses, cells } = facts;
  const cellCount = Math.ceil(blockCount / perCell);
  const columns = cellCount > 1536 ? 96 : 64;
  const pitch = 960 / columns;
  const margin = 64;
  const rows = Math.ceil(cellCount / columns);
  const map = picture(margin + 960, rows * pitch, label);
  const totals = uses.map(() => 0);
  let at = 0;
  for (const [repeat, ...flat] of cells) {
    const shares = [];
    for (let i = 0; i < flat.length; i += 2)
      shares.push([flat[i], flat[i + 1]]);
    for (let i = 0; i < repeat; ++i, ++at) {
      const first = at * perCell;
      const last = Math.min(first + perCell, blockCount) - 1;
      const place = first === last ? `block ${number(first)}` : `blocks ${number(first)} to ${number(last)}`;
      const lines = shares.map(([use, count]) => `${uses[use].replace("_", " ")}: ${number(count)}`);
      const x = margin + (at % columns) * pitch;
      const y = Math.floor(at / columns) * pitch;
      const shape = cellShape(x, y, pitch - 1.5, shares, uses, last - first + 1);
      map.append(withTip(shape, `${place}\n${lines.join("\n")}`));
      for (const [use, count] of shares)
        totals[use] += count;
    }
  }
  for (let row = 0; row < rows; row += 4) {
    const text = drawn("text", { x: margin - 8, y: row * pitch + 9, "text-anchor": "end" });
    text.append(number(row * columns * perCell));
    map.append(text);
  }
  return [map, legend(name, uses, totals, blockCount)];
}

function legend(name, uses, totals, whole) {
  const list = element("ul", { class: "legend" });
  uses.forEach((use, i) => {
    if (totals[i] === 0 && ["unknown", "large_object"].includes(use))
      return;
    const swatch = element("i");
    const { fill, "fill-opacity": opacity } = colour(use);
    swatch.style.background = fill;
    swatch.style.opacity = opacity ?? 1;
    const count = fact(`${name}.${use.replace(" ", ".")}`, totals[i], "span", { class: "count" });
    list.append(withTip(element("li", totals[i] === 0 ? { class: "none" } : {}, swatch,
      use.replace("_", " "), count), `${percent(totals[i], whole)} of ${counted(whole, "block")}`));
  });
  return list;
}

// How many of something are how full, in steps of equal width.
function histogram(title, counts, thing, fill) {
  const [width, height, base] = [320, 130, 110];
  const chart = picture(width, height, title);
  const most = Math.max(1, ...counts);
  const step = width / counts.length;
  chart.append(drawn("line", { class: "axis", x1: 0, x2: width, y1: base + 0.5, y2: base + 0.5 }));
  counts.forEach((count, i) => {
    const tall = count === 0 ? 0 : Math.max(2, (count / most) * (base - 14));
    const share = 100 / counts.length;
    const text = `${share * i} to ${share * (i + 1)} % full\n${counted(count, thing)}`;
    chart.append(withTip(drawn("g", { class: "cell" },
      drawn("rect", { x: i * step, y: 0, width: step, height: base, fill: "transparent" }),
      drawn("rect", { x: i * step + 1, y: base - tall, width: step - 2, height: tall, rx: 1, fill })), text));
  });
  const labels = [["0 %", 0, "start"], ["50 %", width / 2, "middle"], ["100 % full", width, "end"],
    [`up to ${counted(most, thing)}`, 0, "start"]];
  labels.forEach(([text, x, anchor], i) =>
    chart.append(drawn("text", { x, y: i === 3 ? 9 : base + 14, "text-anchor": anchor }, text)));
  return element("div", {}, element("h3", {}, title), chart);
}
