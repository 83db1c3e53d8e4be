// Who may talk to whom: the server's answer as a square of marks, and what of it is shown.

// In the order of their numbers. The shape is drawn in a square of 30; `part` is the piece of a cell that is filled
// where cells are too small for shapes: left, top, width, height.
export const MARKS = [
  { key: "self", text: "itself", part: [0, 0, 1, 1] },
  { key: "open", text: "forwards", shape: "M13 15h4" },
  { key: "both", text: "blocked both ways", shape: "M10 10l10 10M20 10l-10 10", part: [0, 0, 1, 1] },
  { key: "oneway", text: "blocked in this direction only", shape: "M7 15h11M14 11l4 4l-4 4M23 9v12",
    part: [0, 0, 0.5, 1] },
  { key: "vlan", text: "blocked within a VLAN only", shape: "M10 10l5 10l5 -10", part: [0, 0.5, 1, 0.5] },
  { key: "partly", text: "passes over some member ports only", shape: "M9 15q3 -5 6 0t6 0",
    part: [0.25, 0.25, 0.5, 0.5] },
  { key: "spans", text: "forwards, but not within a group", shape: "M9 15h3M15 15h0M18 15h3", part: [0, 0.4, 1, 0.2] },
];
export const [SELF, OPEN, BOTH, ONE_WAY, IN_VLAN, PARTLY, SPANS] = MARKS.keys();

const WORDS = { forwards: OPEN, blocked: BOTH, partly: PARTLY };

// A matrix: `names`, and in `marks` the marks, rows first. `vlans` has, by the place in `marks`, the VLANs in which a
// cell does not forward though it does in general; `groups` those whose members on other machines it keeps apart.
export function readMatrix(answer) {
  const names = answer.interfaces, size = names.length;
  const places = new Map(names.map((name, at) => [name, at]));
  const marks = new Uint8Array(size * size);
  for (const row of answer.rows) {
    const start = places.get(row.from) * size;
    names.forEach((name, at) => { if (name !== row.from) marks[start + at] = WORDS[row.to[name]]; });
  }
  const matrix = { names, places, marks, vlans: new Map(), groups: new Map(), vlan: answer.vlan, simulated: answer.simulated };
  markOneWay(matrix);
  for (const { from, to, vlans } of answer.blockedInVlans) {
    const at = places.get(from) * size + places.get(to);
    matrix.vlans.set(at, vlans.join(", "));
    if (marks[at] === OPEN) marks[at] = IN_VLAN;
  }
  for (const { from, to, groups } of answer.spanning) {
    const at = places.get(from) * size + places.get(to);
    matrix.groups.set(at, groups.join(", "));
    if (marks[at] === OPEN) marks[at] = SPANS;
  }
  return matrix;
}

function markOneWay({ names: { length: size }, marks }) {
  const blocked = (mark) => mark === BOTH || mark === ONE_WAY;
  for (let row = 0; row < size; ++row) {
    for (let column = 0; column < size; ++column) {
      const at = row * size + column;
      if (marks[at] === BOTH && !blocked(marks[column * size + row])) marks[at] = ONE_WAY;
    }
  }
}

// The places whose marks are not those of an earlier matrix of the same interfaces and VLAN.
export function changedPlaces(matrix, earlier) {
  const changed = new Set();
  if (!earlier || earlier.vlan !== matrix.vlan || earlier.names.join() !== matrix.names.join()) return changed;
  matrix.marks.forEach((mark, at) => { if (mark !== earlier.marks[at]) changed.add(at); });
  return changed;
}

// Answers whether a name is meant by words: a part of it, or a glob of all of it; behind ! it is not meant.
export function nameFilter(text) {
  const terms = text.split(/[\s,]+/).filter((term) => term.replace(/^!/, "")).map((term) => {
    const not = term.startsWith("!"), word = term.slice(not ? 1 : 0).toLowerCase();
    const glob = /[*?]/.test(word) && globPattern(word);
    return { not, fits: (name) => (glob ? glob.test(name) : name.includes(word)) };
  });
  const wanted = terms.filter((term) => !term.not), unwanted = terms.filter((term) => term.not);
  return (name) => {
    const lower = name.toLowerCase();
    const fits = (term) => term.fits(lower);
    return (wanted.length === 0 || wanted.some(fits)) && !unwanted.some(fits);
  };
}

function globPattern(word) {
  const escaped = word.replace(/[\\^$+.()|{}[\]]/g, "\\$&");
  return new RegExp(`^${escaped.replace(/\*/g, ".*").replace(/\?/g, ".")}$`);
}

// Whether two interfaces could change places and nothing would look different.
function alike({ names: { length: size }, marks, vlans, groups }, one, other) {
  const same = (a, b) => marks[a] === marks[b] && (marks[a] !== IN_VLAN || vlans.get(a) === vlans.get(b)) &&
    groups.get(a) === groups.get(b);
  if (!same(one * size + other, other * size + one)) return false;
  for (let at = 0; at < size; ++at) {
    if (at === one || at === other) continue;
    if (!same(one * size + at, other * size + at) || !same(at * size + one, at * size + other)) return false;
  }
  return true;
}

function bundlesAlike(matrix, places) {
  const bundles = [];
  for (const place of places) {
    const bundle = bundles.find((known) => alike(matrix, known[0], place));
    if (bundle) bundle.push(place); else bundles.push([place]);
  }
  return bundles;
}

// What is shown: bundles of places as rows and columns, a bundle being one interface or several that are alike.
export function makeView(matrix, { names, members, blocked, fold }) {
  const [from, to = from] = names.split(">").map(nameFilter);
  const choose = (filter) => [...matrix.names.keys()].filter((at) =>
    filter(matrix.names[at]) && (!members || members.has(matrix.names[at])));
  let rows = choose(from), columns = choose(to);
  if (blocked) {
    const closed = (row, column) => matrix.marks[row * matrix.names.length + column] > OPEN;
    const chosen = [rows, columns];
    rows = rows.filter((row) => chosen[1].some((column) => closed(row, column) || closed(column, row)));
    columns = columns.filter((column) => chosen[0].some((row) => closed(row, column) || closed(column, row)));
  }
  const bundle = (places) => (fold ? bundlesAlike(matrix, places) : places.map((place) => [place]));
  return withPlaces({ matrix, rows: bundle(rows), columns: bundle(columns) });
}

// Notes for each cell which place in the matrix it stands for: members of one bundle stand for each other.
function withPlaces(view) {
  const size = view.matrix.names.length, width = view.columns.length;
  view.places = new Uint32Array(view.rows.length * width);
  view.rows.forEach((row, r) => view.columns.forEach((column, c) => {
    const from = row.find((place) => column.some((other) => other !== place)) ?? row[0];
    const to = column[0] !== from || column.length === 1 ? column[0] : column[1];
    view.places[r * width + c] = from * size + to;
  }));
  return view;
}

export function placeOf(view, row, column) {
  return view.places[row * view.columns.length + column];
}

export function markOf(view, row, column) {
  return view.matrix.marks[placeOf(view, row, column)];
}

export function bundleName({ matrix }, bundle) {
  return matrix.names[bundle[0]] + (bundle.length > 1 ? ` +${bundle.length - 1}` : "");
}

// The names of both ends of a cell of the view.
export function endsOf(view, row, column) {
  const place = placeOf(view, row, column), size = view.matrix.names.length;
  return [view.matrix.names[Math.floor(place / size)], view.matrix.names[place % size]];
}

export function cellText(view, row, column) {
  const place = placeOf(view, row, column), mark = view.matrix.marks[place];
  const ends = `${bundleName(view, view.rows[row])} → ${bundleName(view, view.columns[column])}`;
  if (mark === SELF) return bundleName(view, view.rows[row]);
  const within = view.matrix.vlans.get(place), groups = mark === SPANS ? ` (${view.matrix.groups.get(place)})` : "";
  return `${ends}: ${within ? `blocked within VLAN ${within}` : MARKS[mark].text + groups}`;
}

// How many one-way cells of the view have each mark.
export function countMarks(view) {
  const counts = MARKS.map(() => 0);
  view.rows.forEach((row, r) => view.columns.forEach((column, c) => {
    const both = row.filter((place) => column.includes(place)).length;
    counts[markOf(view, r, c)] += row.length * column.length - both;
  }));
  return counts;
}
