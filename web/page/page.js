// The page: keeps what the server has told, and shows it whenever it or what is wanted of it changes.
import { drawMark, makeGrid, recolour, showView, zoom } from "./grid.js";
import { MARKS, SELF, changedPlaces, countMarks, makeView, readMatrix } from "./matrix.js";
import { addHappening, element, makeHappenings, showAnswer, showNoAnswer, showState, showTable } from "./panels.js";
import { LOOK_LIMIT_MS, NEEDS_TOKEN, ask, follow, keepToken, query } from "./server.js";

const FRESH_MS = 3000;   // how long a changed cell has a ring
const SETTLE_MS = 80;    // after the first sign of a change
const ALL_MS = 60000;    // after which all is asked for anew in any case
const THEMES = { auto: "◐ as the system", light: "☀ light", dark: "☾ dark" };

const one = (id) => document.getElementById(id);
const state = { matrix: null, status: null, groups: new Map(), asked: null, failure: "", linked: false,
  at: null, allAt: null };  // from when the matrix is, and all
let grid = null, asking = false, again = false, settling = 0, freshUntil = 0, whys = 0;

function members(rows, name) {
  const groups = new Map();
  for (const row of rows) {
    const key = row.vlan ? `${name} ${row.group} in VLAN ${row.vlan}` : `${name} ${row.group}`;
    groups.set(key, (groups.get(key) ?? new Set()).add(row.interface));
  }
  return groups;
}

// Replaces the choices and keeps what is chosen, also where it is gone.
function setChoices(select, choices) {
  const chosen = select.value, texts = new Map([["", "all"], ...choices]);
  if (!texts.has(chosen)) texts.set(chosen, `${chosen} (gone)`);
  if (select.dataset.choices === [...texts.keys()].join()) return;
  select.dataset.choices = [...texts.keys()].join();
  select.replaceChildren(...[...texts].map(([value, textContent]) => element("option", { value, textContent })));
  select.value = chosen;
}

// The matrix is asked for first and shown at once.
async function askAll() {
  const begun = new Date(), vlan = one("vlan").value;
  const shown = ask(`matrix${query({ vlan })}`).then((answer) => {
    if (vlan === one("vlan").value) showMatrix(readMatrix(answer), begun);
  });
  const [status, groups, vlanGroups, interfaces] = await Promise.all(
    [...["status", "groups", "vlan-groups", "interfaces"].map((path) => ask(path)), shown]);
  Object.assign(state, { status, allAt: begun, failure: "",
    groups: new Map([...members(groups, "group"), ...members(vlanGroups, "VLAN group")]) });
  one("token").hidden = true;
  const vlans = new Set([...interfaces.map((port) => port.vlan), ...vlanGroups.map((row) => row.vlan)]);
  setChoices(one("vlan"), [...vlans].filter(Boolean).sort((a, b) => a - b).map((id) => [String(id), String(id)]));
  setChoices(one("group"), [...state.groups.keys()].map((name) => [name, name]));
  one("group").value ? show() : showState(state);
}

function showMatrix(matrix, at) {
  const fresh = changedPlaces(matrix, state.matrix);
  if (state.matrix?.names.join() !== matrix.names.join()) {
    one("known").replaceChildren(...matrix.names.map((value) => element("option", { value })));
  }
  Object.assign(state, { matrix, at });
  show(fresh);
}

// One question at a time; what changes meanwhile is asked for once it is answered.
async function refresh() {
  again = true;
  if (asking) return;
  asking = true;
  while (again) {
    again = false;
    await askAll().then(askWhy).catch(fail);
  }
  asking = false;
  showState(state);
}

// What changes in several steps is asked for once they are done.
function settle() {
  settling ||= setTimeout(() => { settling = 0; refresh(); }, SETTLE_MS);
}

function fail(error) {
  state.failure = error.message;
  one("token").hidden = error.status !== NEEDS_TOKEN;
  showState(state);
}

// Finds what nobody tells: that the plane was changed by others, that the daemon is gone, how much was dropped.
async function look() {
  const sum = (status) => JSON.stringify([status.state, status.missing, status.leftOver, status.healed, status.problems]);
  const begun = new Date();
  try {
    const status = await ask("status", LOOK_LIMIT_MS);
    const stale = state.failure || !state.status || sum(status) !== sum(state.status) || begun - state.allAt > ALL_MS;
    state.status = status;
    if (stale) return await refresh();
    if (state.linked && !asking && !settling) state.at = begun;
    await askWhy();
    showState(state);
  } catch (error) {
    fail(error);
  }
}

async function askWhy() {
  if (!state.asked) return;
  const number = ++whys;
  const show = (what, value) => { if (number === whys) what(value); };
  await ask(`why${query({ ...state.asked, vlan: one("vlan").value })}`)
    .then((answer) => show(showAnswer, answer), (error) => show(showNoAnswer, error.message));
}

function askAbout(from, to) {
  one("from").value = from;
  one("to").value = to;
  state.asked = { from, to };
  askWhy();
}

function shownText(view) {
  const all = state.matrix.names.length, rows = view.rows.flat().length, columns = view.columns.flat().length;
  const scope = state.matrix.vlan ? `in VLAN ${state.matrix.vlan}` : "whatever the VLAN";
  const some = rows < all || columns < all ? `, ${rows} × ${columns} of them shown` : "";
  return `${scope}; ${all} interfaces${some}`;
}

function show(fresh = new Set()) {
  if (!state.matrix) return;
  const group = one("group").value;
  const view = makeView(state.matrix, { names: one("names").value, blocked: one("blocked").checked,
    members: group && (state.groups.get(group) ?? new Set()), fold: one("fold").checked });
  const table = one("as-table").checked;
  for (const id of ["grid", "zoom", "keys"]) one(id).hidden = table;
  one("table").hidden = !table;
  one("shown").textContent = shownText(view);
  showCounts(countMarks(view));
  if (table) showTable(view);
  markFresh(fresh);
  showView(grid, view, fresh.size ? fresh : grid.fresh);
  showState(state);
}

function markFresh(fresh) {
  if (!fresh.size) return;
  freshUntil = Date.now() + FRESH_MS;
  setTimeout(() => { if (Date.now() >= freshUntil) { grid.fresh = new Set(); recolour(grid); } }, FRESH_MS + 50);
}

function makeLegend() {
  one("legend").append(...MARKS.map((mark) => element("li", { title: mark.text },
    element("canvas", { className: mark.key, width: 40, height: 40 }), element("span", { textContent: mark.text }),
    element("b", {}))));
}

function showCounts(counts) {
  [...one("legend").children].forEach((item, mark) => {
    item.lastElementChild.textContent = mark === SELF ? "" : counts[mark].toLocaleString();
  });
}

function drawLegend() {
  [...one("legend").children].forEach((item, mark) => {
    const canvas = item.firstElementChild, style = getComputedStyle(canvas);
    canvas.width = 40;
    drawMark(canvas, mark, style.backgroundColor, style.color);
  });
}

function setTheme(theme) {
  document.documentElement.dataset.theme = theme;
  one("theme").textContent = THEMES[theme];
  one("theme").setAttribute("aria-label", `Colours: ${THEMES[theme].slice(2)}`);
  drawLegend();
  recolour(grid);
}

function makeTheme() {
  const names = Object.keys(THEMES), kept = localStorage.getItem("theme");
  setTheme(names.includes(kept) ? kept : "auto");
  one("theme").addEventListener("click", () => {
    const next = names[(names.indexOf(document.documentElement.dataset.theme) + 1) % names.length];
    localStorage.setItem("theme", next);
    setTheme(next);
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => { drawLegend(); recolour(grid); });
}

function onSubmit(form, act) {
  one(form).addEventListener("submit", (event) => { event.preventDefault(); act(); });
}

function makeFilters() {
  const filters = one("filters");
  onSubmit("filters", () => {});
  filters.addEventListener("input", (event) => (event.target === one("vlan") ? refresh() : show()));
  for (const button of one("zoom").children) {
    button.addEventListener("click", () => zoom(grid, Number(button.dataset.zoom)));
  }
  onSubmit("ask", () => askAbout(one("from").value, one("to").value));
  onSubmit("token", () => { keepToken(one("secret").value); refresh(); });
  document.addEventListener("keydown", (event) => {
    if (event.key !== "/" || /^(INPUT|SELECT)$/.test(event.target.tagName)) return;
    event.preventDefault();
    one("names").focus();
  });
}

function linked(now) {
  const text = "connection lost; what happened until the next line is not known";
  if (!now && state.linked) addHappening({ kind: "gap", text });
  state.linked = now;
  showState(state);
}

makeLegend();
grid = makeGrid(one("grid"), one("readout"), one("legend"), askAbout);
makeTheme();
makeFilters();
makeHappenings();
setChoices(one("vlan"), []);
setChoices(one("group"), []);
follow({ told: addHappening, changed: settle, linked, look });
