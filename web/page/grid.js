// The matrix on a canvas that is as large as what is seen of it. Names stay at the edges while cells scroll below them.
import { MARKS, OPEN, SELF, bundleName, cellText, endsOf, markOf, placeOf } from "./matrix.js";

const SIZES = [2, 3, 4, 6, 8, 10, 12, 15, 18, 22, 26, 30, 34, 40];  // of a cell, in pixels
const READABLE = 15, LARGEST = 40;  // between which a size is chosen that lets all columns be seen
const SHAPED = 10;                  // from which on a cell has a shape
const NAME_MAX = 170;               // width of a name, in pixels
const LEAN = -Math.PI / 3.4;        // of the names of columns
const GAP = 8;

// Colours come from the legend, so that the two never differ.
export function makeGrid(host, readout, legend, ask) {
  const canvas = host.querySelector("canvas");
  const grid = { host, span: host.firstElementChild, canvas, pen: canvas.getContext("2d"), readout, legend, ask,
    view: null, size: 0, at: { row: 0, column: 0 }, over: null, fresh: new Set(), asked: 0, sprites: new Map() };
  host.addEventListener("scroll", () => redraw(grid));
  host.addEventListener("pointermove", (event) => point(grid, event));
  host.addEventListener("pointerleave", () => { grid.over = null; tell(grid); redraw(grid); });
  host.addEventListener("click", (event) => click(grid, event));
  host.addEventListener("keydown", (event) => { if (press(grid, event)) event.preventDefault(); });
  host.addEventListener("focus", () => { tell(grid); redraw(grid); });
  host.addEventListener("blur", () => { tell(grid); redraw(grid); });
  new ResizeObserver(() => layOut(grid)).observe(host.parentElement);
  return grid;
}

export function showView(grid, view, fresh) {
  const former = grid.view?.places.length && endsOf(grid.view, grid.at.row, grid.at.column);
  grid.view = view;
  grid.fresh = fresh;
  grid.over = null;
  grid.at = { row: findBundle(view, view.rows, former?.[0]), column: findBundle(view, view.columns, former?.[1]) };
  layOut(grid);
}

export function recolour(grid) {
  grid.sprites.clear();
  redraw(grid);
}

// A step larger or smaller; 0 goes back to a size that lets all columns be seen.
export function zoom(grid, step) {
  const next = step > 0 ? SIZES.find((size) => size > grid.cell) : SIZES.findLast((size) => size < grid.cell);
  grid.size = step === 0 ? 0 : next ?? grid.cell;
  layOut(grid);
  if (grid.view) reveal(grid);
}

function findBundle(view, bundles, name) {
  return Math.max(0, bundles.findIndex((bundle) => bundle.some((place) => view.matrix.names[place] === name)));
}

function layOut(grid) {
  const { view, host, pen } = grid;
  if (!view || host.hidden) return;
  pen.font = font(12);
  const widest = (bundles) => bundles.reduce((most, bundle) =>
    Math.max(most, pen.measureText(bundleName(view, bundle)).width), 20);
  grid.left = Math.ceil(Math.min(widest(view.rows), NAME_MAX)) + 2 * GAP;
  const slant = Math.min(widest(view.columns), NAME_MAX);
  grid.top = Math.ceil(-Math.sin(LEAN) * slant) + 3 * GAP;
  const overhang = Math.cos(LEAN) * slant + GAP;
  const room = host.parentElement.clientWidth - grid.left - overhang - 2;
  const fitting = Math.floor(room / Math.max(1, view.columns.length));
  grid.cell = grid.size || Math.min(LARGEST, Math.max(READABLE, fitting));
  grid.span.style.width = `${grid.left + view.columns.length * grid.cell + overhang}px`;
  grid.span.style.height = `${grid.top + view.rows.length * grid.cell + 2}px`;
  redraw(grid);
}

function redraw(grid) {
  if (grid.asked) return;
  grid.asked = requestAnimationFrame(() => { grid.asked = 0; draw(grid); });
}

function font(size, bold) {
  return `${bold ? "600 " : ""}${size}px ui-sans-serif, system-ui, sans-serif`;
}

function colours(grid) {
  const style = getComputedStyle(grid.host);
  const of = (key) => getComputedStyle(grid.legend.querySelector(`.${key}`));
  return { page: style.backgroundColor, ink: style.color, faint: style.caretColor, focus: style.outlineColor,
    fill: MARKS.map((mark) => of(mark.key).backgroundColor), line: MARKS.map((mark) => of(mark.key).color) };
}

function fitCanvas({ host, canvas, pen }) {
  const scale = devicePixelRatio, width = host.clientWidth, height = host.clientHeight;
  if (canvas.width !== Math.round(width * scale) || canvas.height !== Math.round(height * scale)) {
    canvas.width = Math.round(width * scale);
    canvas.height = Math.round(height * scale);
    canvas.style.width = `${width}px`;
    canvas.style.height = `${height}px`;
  }
  pen.setTransform(scale, 0, 0, scale, 0, 0);
  return { width, height };
}

// The rows and columns that are seen.
function seen({ host, view, cell, left, top }, { width, height }) {
  const first = (scrolled) => Math.max(0, Math.floor(scrolled / cell));
  const last = (scrolled, room, count) => Math.min(count, Math.ceil((scrolled + room) / cell));
  return { firstRow: first(host.scrollTop), lastRow: last(host.scrollTop, height - top, view.rows.length),
    firstColumn: first(host.scrollLeft), lastColumn: last(host.scrollLeft, width - left, view.columns.length) };
}

function draw(grid) {
  const { pen, view } = grid;
  if (!view || grid.host.hidden) return;
  const room = fitCanvas(grid), part = seen(grid, room), colour = colours(grid);
  pen.fillStyle = colour.page;
  pen.fillRect(0, 0, room.width, room.height);
  pen.save();
  pen.beginPath();
  pen.rect(grid.left - 3, grid.top - 3, room.width, room.height);
  pen.clip();
  (grid.cell >= SHAPED ? drawShapes : drawParts)(grid, part, colour);
  drawRings(grid, part, colour);
  pen.restore();
  drawRowNames(grid, part, colour, room);
  drawColumnNames(grid, part, colour, room);
  const { left, top, cell, fresh } = grid;
  grid.host.dataset.drawn = JSON.stringify({ left, top, cell, rows: view.rows.length, fresh: fresh.size });
}

function corner({ host, left, top, cell }, row, column) {
  return [left + column * cell - host.scrollLeft, top + row * cell - host.scrollTop];
}

function drawShapes(grid, part, colour) {
  for (let row = part.firstRow; row < part.lastRow; ++row) {
    for (let column = part.firstColumn; column < part.lastColumn; ++column) {
      const [x, y] = corner(grid, row, column);
      grid.pen.drawImage(sprite(grid, markOf(grid.view, row, column), colour), x, y, grid.cell, grid.cell);
    }
  }
}

// A cell drawn once for all that look so.
function sprite(grid, mark, colour) {
  const key = `${mark} ${grid.cell} ${devicePixelRatio}`;
  if (!grid.sprites.has(key)) {
    const canvas = document.createElement("canvas");
    canvas.width = canvas.height = Math.round(grid.cell * devicePixelRatio);
    drawMark(canvas, mark, colour.fill[mark], colour.line[mark]);
    grid.sprites.set(key, canvas);
  }
  return grid.sprites.get(key);
}

export function drawMark(canvas, mark, fill, line) {
  const pen = canvas.getContext("2d"), edge = canvas.width, gap = edge > 20 ? 2 : 1;
  pen.fillStyle = fill;
  pen.beginPath();
  pen.roundRect(0, 0, edge - gap, edge - gap, edge > 20 ? edge / 8 : 1);
  pen.fill();
  if (!MARKS[mark].shape) return;
  pen.scale((edge - gap) / 30, (edge - gap) / 30);
  pen.strokeStyle = line;
  pen.lineWidth = edge > 20 ? 2.4 : 3.4;
  pen.lineCap = pen.lineJoin = "round";
  pen.stroke(new Path2D(MARKS[mark].shape));
}

// Small cells: neighbours that are alike in one go.
function drawParts(grid, part, colour) {
  const { pen, view, cell } = grid;
  const [x, y] = corner(grid, part.firstRow, part.firstColumn);
  pen.fillStyle = colour.fill[OPEN];
  pen.fillRect(x, y, (part.lastColumn - part.firstColumn) * cell, (part.lastRow - part.firstRow) * cell);
  for (let row = part.firstRow; row < part.lastRow; ++row) {
    for (let column = part.firstColumn, end; column < part.lastColumn; column = end) {
      const mark = markOf(view, row, column), piece = MARKS[mark].part;
      for (end = column + 1; end < part.lastColumn && markOf(view, row, end) === mark; ++end);
      if (!piece) continue;
      pen.fillStyle = colour.fill[mark];
      for (let at = column; at < end; at += piece[2] === 1 ? end - column : 1) {
        const [left, top] = corner(grid, row, at);
        const width = piece[2] === 1 ? (end - column) * cell : piece[2] * cell;
        pen.fillRect(left + piece[0] * cell, top + piece[1] * cell, width, piece[3] * cell);
      }
    }
  }
}

// Around what has changed just now, and around the cell that is pointed at.
function drawRings(grid, part, colour) {
  const { pen, view, cell } = grid;
  const ring = (row, column, width, ink) => {
    const [x, y] = corner(grid, row, column), wide = Math.max(cell, 6);
    pen.lineWidth = width;
    pen.strokeStyle = ink;
    pen.strokeRect(x - 1, y - 1, wide, wide);
  };
  for (let row = part.firstRow; grid.fresh.size && row < part.lastRow; ++row) {
    for (let column = part.firstColumn; column < part.lastColumn; ++column) {
      if (grid.fresh.has(placeOf(view, row, column))) ring(row, column, 2, colour.ink);
    }
  }
  const at = current(grid);
  if (at) ring(at.row, at.column, 3, colour.focus);
}

// The cell that is pointed at, by the pointer or else by the keyboard.
function current(grid) {
  if (!grid.view?.places.length) return null;
  return grid.over ?? (document.activeElement === grid.host ? grid.at : null);
}

function shortened(pen, text) {
  if (pen.measureText(text).width <= NAME_MAX) return text;
  while (pen.measureText(`${text}…`).width > NAME_MAX) text = text.slice(0, -1);
  return `${text}…`;
}

// Names where there is room for them, and the one that is pointed at.
function namesToDraw(first, last, cell, chosen) {
  const step = Math.ceil(12 / cell), names = [];
  for (let at = Math.ceil(first / step) * step; at < last; at += step) {
    if (chosen === undefined || at === chosen || Math.abs(at - chosen) * cell >= 12) names.push(at);
  }
  if (chosen >= first && chosen < last && !names.includes(chosen)) names.push(chosen);
  return names;
}

function setName({ pen, cell }, colour, chosen) {
  pen.font = font(Math.min(13, Math.max(10, cell - 3)), chosen);
  pen.fillStyle = chosen ? colour.focus : colour.ink;
}

function drawRowNames(grid, part, colour, room) {
  const { pen, view, cell, left, top } = grid, chosen = current(grid)?.row;
  pen.save();
  pen.fillStyle = colour.page;
  pen.fillRect(0, 0, left, room.height);
  pen.rect(0, top - GAP, left, room.height);
  pen.clip();
  pen.textAlign = "right";
  pen.textBaseline = "middle";
  for (const row of namesToDraw(part.firstRow, part.lastRow, cell, chosen)) {
    setName(grid, colour, row === chosen);
    const [, y] = corner(grid, row, 0);
    pen.fillText(shortened(pen, bundleName(view, view.rows[row])), left - GAP, y + cell / 2);
  }
  pen.restore();
}

function drawColumnNames(grid, part, colour, room) {
  const { pen, view, cell, left, top } = grid, chosen = current(grid)?.column;
  pen.save();
  pen.fillStyle = colour.page;
  pen.fillRect(0, 0, room.width, top - GAP);
  pen.rect(left - GAP, 0, room.width, top);
  pen.clip();
  pen.textAlign = "left";
  pen.textBaseline = "middle";
  for (const column of namesToDraw(part.firstColumn, part.lastColumn, cell, chosen)) {
    setName(grid, colour, column === chosen);
    const [x] = corner(grid, 0, column);
    pen.save();
    pen.translate(x + cell / 2, top - GAP);
    pen.rotate(LEAN);
    pen.fillText(shortened(pen, bundleName(view, view.columns[column])), 0, 0);
    pen.restore();
  }
  pen.restore();
}

function cellUnder(grid, event) {
  const { host, view, cell, left, top } = grid, box = host.getBoundingClientRect();
  const x = event.clientX - box.left - host.clientLeft - left, y = event.clientY - box.top - host.clientTop - top;
  const row = Math.floor((y + host.scrollTop) / cell), column = Math.floor((x + host.scrollLeft) / cell);
  const inside = view && x >= 0 && y >= 0 && row < view.rows.length && column < view.columns.length;
  return inside ? { row, column } : null;
}

function point(grid, event) {
  grid.over = cellUnder(grid, event);
  tell(grid);
  redraw(grid);
}

function click(grid, event) {
  const at = cellUnder(grid, event);
  if (!at) return;
  grid.at = at;
  askAbout(grid, at);
  redraw(grid);
}

function askAbout(grid, { row, column }) {
  if (markOf(grid.view, row, column) !== SELF) grid.ask(...endsOf(grid.view, row, column));
}

// Says beside the cell what it is.
function tell(grid) {
  const at = current(grid), { readout } = grid;
  readout.hidden = !at;
  if (!at) return;
  const text = cellText(grid.view, at.row, at.column);
  if (readout.textContent !== text) readout.textContent = text;
  const box = grid.host.getBoundingClientRect(), [x, y] = corner(grid, at.row, at.column);
  const most = document.documentElement.clientWidth - readout.offsetWidth - GAP;
  readout.style.left = `${Math.max(GAP, Math.min(box.left + x + grid.cell + GAP, most))}px`;
  readout.style.top = `${box.top + y + grid.cell + GAP}px`;
}

function press(grid, event) {
  if (!current(grid) || event.altKey || event.metaKey) return false;
  if (["+", "-", "0"].includes(event.key) && !event.ctrlKey) {
    zoom(grid, event.key === "0" ? 0 : Number(`${event.key}1`));
    return true;
  }
  if (event.key === "Enter" || event.key === " ") {
    askAbout(grid, grid.at);
    return true;
  }
  const { rows, columns } = grid.view;
  const page = Math.max(1, Math.floor((grid.host.clientHeight - grid.top) / grid.cell) - 1);
  const step = { ArrowUp: [-1, 0], ArrowDown: [1, 0], ArrowLeft: [0, -1], ArrowRight: [0, 1], PageUp: [-page, 0],
    PageDown: [page, 0], Home: [event.ctrlKey ? -rows.length : 0, -columns.length],
    End: [event.ctrlKey ? rows.length : 0, columns.length] }[event.key];
  if (!step) return false;
  const within = (value, count) => Math.max(0, Math.min(count - 1, value));
  const { row, column } = grid.at;
  grid.at = { row: within(row + step[0], rows.length), column: within(column + step[1], columns.length) };
  grid.over = null;
  reveal(grid);
  return true;
}

function reveal(grid) {
  const { host, cell, left, top, at } = grid;
  const into = (scrolled, start, room) => Math.min(start, Math.max(scrolled, start + cell - room));
  host.scrollTop = into(host.scrollTop, at.row * cell, host.clientHeight - top);
  host.scrollLeft = into(host.scrollLeft, at.column * cell, host.clientWidth - left);
  tell(grid);
  redraw(grid);
}
