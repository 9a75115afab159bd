// The page: one section for each part of the databases, in the order in which a person asks.

const facts = JSON.parse(document.getElementById("facts").textContent);
const main = document.getElementById("main");

function section(title, note, ...children) {
  const made = element("section", {}, element("h2", {}, title));
  if (note !== "")
    made.append(element("p", { class: "note" }, note));
  made.append(...children);
  main.append(made);
}

function showHead() {
  document.title = `Quenor databases in ${facts.directory}`;
  document.getElementById("directory").textContent = facts.directory;
  const words = { sound: "Sound", damaged: "Damaged", "not a pair": "Not a pair of databases" };
  const verdict = document.getElementById("verdict");
  verdict.textContent = words[facts.verdict];
  verdict.dataset.fact = "verdict";
  verdict.classList.toggle("bad", facts.verdict !== "sound");
}

function showTiles() {
  const { tsdb, mdb, journal } = facts.summary;
  const tiles = element("section", { class: "tiles" });
  const tile = (value, text) => tiles.append(element("div", { class: "tile" }, element("b", {}, value),
    element("span", {}, text)));
  if (tsdb !== null) {
    tile(size(tsdb.file_bytes), `main.tsdb, blocks of ${size(tsdb.block_size)}`);
    tile(fact("series_count", tsdb.series_count), "time series");
    tile(fact("level_count", tsdb.level_count), "levels");
  }
  if (mdb !== null) {
    tile(size(mdb.file_bytes), `main.odb, blocks of ${size(mdb.block_size)}`);
    tile(fact("node_count", facts.nodes?.node_count ?? 0), "nodes");
  }
  if (journal !== null) {
    tile(size(journal.length_bytes), journal.internal ? "journal, inside main.odb" : "journal");
    tile(fact("replayed_transactions", journal.replayed_transactions), "transactions to replay");
  }
  main.append(tiles);
}

function showFindings() {
  if (facts.findings.length === 0 && facts.unavailable.length === 0)
    return;
  const list = element("ul", { class: "findings" });
  for (const line of facts.unavailable)
    list.append(element("li", {}, element("b", { class: "damage" }, "missing"), line));
  for (const { severity, file, block, offset, text } of facts.findings) {
    const place = block === null ? `offset ${offset}` : `block ${block}, offset ${offset}`;
    list.append(element("li", {}, element("b", { class: severity }, severity), `${file}, ${place}: ${text}`));
  }
  const hidden = facts.damage_count + facts.note_count - facts.findings.length;
  if (hidden > 0)
    list.append(element("li", {}, `... and ${number(hidden)} more; quenor-dbinfo --check lists them`));
  section("Findings", `${counted(facts.damage_count, "violated invariant")}, ` +
    counted(facts.note_count, "note"), list);
}

// A row for each kind, a column for each set.
function chainTable() {
  const rows = new Map();
  for (const { kind, set, state, timestamp, block_count: blockCount } of facts.chains) {
    if (!rows.has(kind))
      rows.set(kind, element("tr", {}, element("td", {}, kind)));
    const name = `chain.${kind}.${set}`;
    const cell = element("td", state === "committed last" ? { class: "last" } : {}, "timestamp ",
      fact(`${name}.timestamp`, timestamp), ", blocks: ", fact(`${name}.blocks`, blockCount));
    if (state !== "valid")
      cell.append(element("span", { class: "note" }, state));
    rows.get(kind).append(cell);
  }
  const sets = facts.chains.filter(({ kind }) => kind === facts.chains[0].kind);
  const head = element("tr", {}, element("th", {}, "chain"),
    ...sets.map(({ set }) => element("th", {}, `set ${set}`)));
  return element("div", { class: "wide" }, element("h3", {}, "Chains"),
    element("table", {}, head, ...rows.values()));
}

function perCell(blocks) {
  return blocks.per_cell === 1 ? "a cell is a block" : `a cell is ${number(blocks.per_cell)} blocks`;
}

function showTsdb() {
  const blocks = facts.tsdb_blocks;
  if (blocks === undefined)
    return;
  section("Time series", `main.tsdb: ${counted(blocks.block_count, "block")}, ${perCell(blocks)}`,
    ...blockMap("tsdb", blocks, "The blocks of main.tsdb by their use"), chainTable());
}

function showMdb() {
  const blocks = facts.mdb_blocks;
  if (blocks === undefined)
    return;
  const { data, leaves, nodes } = facts.fill;
  section("Nodes and indexes", `main.odb: ${counted(blocks.block_count, "block")}, ${perCell(blocks)}`,
    ...blockMap("mdb", blocks, "The blocks of main.odb by their class"),
    element("div", { class: "side" },
      histogram("Fill of the data blocks", data, "block", "var(--full)"),
      histogram("Fill of the index leaves", leaves, "leaf block", "var(--index_leaf)"),
      histogram("Fill of the index nodes above", nodes, "node", "var(--index_node)")));
}

// A row of boxes for each level, each box above what it leads to; the fuller, the stronger.
function treePicture(rows, index) {
  const [width, height] = [1000, 20];
  const tree = picture(width, rows.length * height, `The tree of index ${index}`);
  const leaves = Math.max(1, ...rows.flat().map((box) => box[1]));
  rows.forEach((row, depth) => {
    const kind = depth === 0 ? "index_root" : depth === rows.length - 1 ? "index_leaf" : "index_node";
    for (const [first, end, nodes, keys, capacity, block, firstKey, lastKey] of row) {
      const x = (first / leaves) * width;
      const span = ((end - first) / leaves) * width;
      const what = nodes === 1 ? `block ${number(block)}` : `${number(nodes)} blocks, the first is ${number(block)}`;
      const range = keys === 0 ? "no keys" : `${counted(keys, "key")}, ${firstKey} to ${lastKey}`;
      const text = `${what}\n${range}\n${percent(keys, capacity)} full`;
      const shape = { class: "cell", x: x.toFixed(2), y: depth * height, height: height - 3, rx: 2,
        width: Math.max(1, span - 1.5).toFixed(2), fill: `var(--${kind})`,
        "fill-opacity": (0.3 + (0.7 * keys) / Math.max(1, capacity)).toFixed(2) };
      tree.append(withTip(drawn("rect", shape), text));
    }
  });
  return tree;
}

function showTrees() {
  if (facts.trees === undefined)
    return;
  const keys = ["node ID", "parent ID", "parent ID of flagged nodes", "property 59", "property 3800",
    "property 3901"];
  const parts = [];
  facts.trees.forEach((rows, i) => {
    const index = facts.summary.mdb.indexes[i];
    const entries = fact(`index.${i}.entries`, index.entry_count);
    const leaves = fact(`index.${i}.leaves`, index.leaf_count);
    parts.push(element("h3", {}, `Index ${i}, by ${keys[i]}`));
    if (!index.made)
      parts.push(element("p", { class: "note" }, "not made yet"));
    else
      parts.push(element("p", { class: "note" }, "entries: ", entries, ", leaves: ", leaves,
        `, levels: ${rows.length}`, index.whole ? "" : ", not whole"), treePicture(rows, i));
  });
  section("Index trees", "from the root down; a stronger colour is a fuller block", ...parts);
}

function halfPicture(summary, half, first, capacity) {
  const width = 1000;
  const bar = picture(width, 44, "The transactions of this half");
  const at = (offset) => ((offset - first) / Math.max(1, capacity)) * width;
  bar.append(withTip(drawn("rect", { class: "track", x: 0, y: 0, width, height: 26, rx: 3 }),
    `not written since the half was entered\n${size(Math.max(0, capacity - summary.used_bytes))}`));
  for (const [fate, offset, end, transactions, updates] of half.segments) {
    const name = { "does not fit": "unfit", begun: "torn" }[fate] ?? fate;
    const text = `${counted(transactions, "transaction")}, ${fate}\n${counted(updates, "update")}\n` +
      `offsets ${number(offset)} to ${number(end)}`;
    bar.append(withTip(drawn("rect", { class: "cell", x: at(offset).toFixed(2), y: 0, height: 26,
      width: Math.max(1, at(end) - at(offset) - 0.6).toFixed(2), fill: `var(--${name})` }), text));
  }
  for (const [offset, anchor, x] of [[first, "start", 0], [first + capacity, "end", width]])
    bar.append(drawn("text", { x, y: 40, "text-anchor": anchor }, number(offset)));
  return bar;
}

function showJournal() {
  const { journal } = facts.summary;
  if (journal === null)
    return;
  const parts = [];
  facts.halves.forEach((half, i) => {
    const summary = journal.halves[i];
    const start = i === 0 ? 48 : Math.ceil(Math.floor(journal.length_bytes / 2) / 8) * 8;
    const newest = journal.newest_half === i ? ", the newest" : "";
    const end = half.end === null ? "" : `; then at ${number(half.end_offset)}: ${half.end}`;
    parts.push(element("h3", {}, `Half ${i}${newest}`), element("p", { class: "note" },
      ...(summary.readable ? ["serial ", fact(`half.${i}.serial`, summary.serial)] : ["pointer unreadable"]),
      ", transactions: ", fact(`half.${i}.transactions`, summary.transaction_count), ", ",
      `${size(summary.used_bytes)} of ${size(summary.capacity_bytes)}${end}`),
    halfPicture(summary, half, start, summary.capacity_bytes));
  });
  const meanings = element("ul", { class: "legend" });
  for (const [fate, text] of [["replayed", "carried out when opened"], ["superseded", "in main.odb already"],
    ["unfit", "does not fit into main.odb"], ["torn", "not committed"]]) {
    const swatch = element("i");
    swatch.style.background = `var(--${fate})`;
    meanings.append(element("li", {}, swatch, text));
  }
  section("Journal", journal.path ?? "inside main.odb", ...parts, meanings);
}

function typeTable() {
  const { records_by_type: types, records_without_type: without } = facts.summary.mdb;
  const rows = Object.entries(types);
  if (without > 0)
    rows.push(["no type", without]);
  rows.sort((a, b) => b[1] - a[1]);
  const list = element("ul", { class: "legend" });
  for (const [type, count] of rows)
    list.append(element("li", {}, type, fact(`type.${type}`, count, "span", { class: "count" })));
  return list;
}

function nodeLine([, id, type, name, children]) {
  const parts = [element("span", { class: "id" }, id), name];
  if (type !== "")
    parts.push(element("span", { class: "type" }, type));
  if (children > 0)
    parts.push(element("span", { class: "type" }, counted(children, "child").replace("childs", "children")));
  return parts;
}

function showNodes() {
  if (facts.nodes === undefined)
    return;
  const { shown, node_count: nodeCount } = facts.nodes;
  const tree = element("div", { class: "tree" });
  const open = [{ place: tree, left: 0 }];
  const close = (depth) => {
    while (open.length > depth) {
      const { place, left } = open.pop();
      if (left > 0)
        place.append(element("div", { class: "more" }, `${number(left)} more`));
    }
  };
  for (const node of shown) {
    const [depth, , , , children] = node;
    close(depth + 1);
    open[depth].left -= 1;
    if (children === 0) {
      open[depth].place.append(element("div", {}, ...nodeLine(node)));
      continue;
    }
    const branch = element("details", {}, element("summary", {}, ...nodeLine(node)));
    branch.open = depth < 2 && children <= 20;
    open[depth].place.append(branch);
    open.push({ place: branch, left: children });
  }
  close(1);
  const note = shown.length === nodeCount ? `${counted(nodeCount, "node")}` :
    `${number(shown.length)} of ${counted(nodeCount, "node")}; quenor-dbinfo --nodes lists all`;
  section("Node tree", note, typeTable(), tree);
}

showHead();
showTiles();
showFindings();
showTsdb();
showMdb();
showTrees();
showJournal();
showNodes();
document.addEventListener("pointermove", showTip);
document.addEventListener("pointerleave", showTip);
