// What stands beside the matrix: the state, why, what happened, and the matrix as a table. All that comes from the
// server is set as text.
import { BOTH, IN_VLAN, MARKS, ONE_WAY, PARTLY, SPANS, bundleName, markOf, placeOf } from "./matrix.js";

const KEPT = 500;      // happenings
const NAMES_MAX = 12;  // in a cell of the table

export function element(name, properties = {}, ...children) {
  const made = Object.assign(document.createElement(name), properties);
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

export function clockText(date) {
  return date.toLocaleTimeString([], { hour12: false });
}

const plural = (count, one, many) => `${count} ${count === 1 ? one : many}`;

// How bad it is and the headline for it. Nothing that is old passes for how things are.
function judge({ status, failure, at, linked }) {
  if (failure) {
    if (!at) return ["lost", `Nothing to show: ${failure}`];
    return ["lost", `Connection lost: ${failure}; below is what held at ${clockText(at)}`];
  }
  if (!status) return ["waiting", "Waiting for the server"];
  if (status.state !== "ready") return ["bad", `The plane is ${status.state}`];
  if (status.missing) return ["bad", `Missing from the plane: ${plural(status.missing, "isolation", "isolations")}`];
  if (status.problems.length > status.pending.length) return ["bad", "Something is wrong"];
  if (status.pending.length) return ["warn", `Pending: ${plural(status.pending.length, "line", "lines")} of what is saved`];
  return ["good", linked ? "The plane holds all that was asked for" : "The plane held all that was asked for"];
}

function facts(status) {
  const peer = status.peer && `${status.peer.state}, boards ${status.peer.boards}`;
  return Object.entries({
    plane: `${status.plane}, ${status.state}`, missing: status.missing, "left over": status.leftOver,
    healed: status.healed, refused: status.refused, doors: status.doors.length,
    saved: status.pending.length ? `${status.pending.length} pending` : status.saved ? "in force" : "nothing",
    role: status.role, peer, version: status.version, since: status.since?.replace(/\.\d+$/, ""),
  }).filter(([name, value]) => value || ["missing", "left over"].includes(name));
}

// What of the state is shown in red or amber.
function tone(name, value) {
  if (name === "missing" && value) return "bad";
  if (["left over", "refused", "doors"].includes(name) && value) return "warn";
  return "";
}

export function showState(state) {
  const [level, headline] = judge(state), { status } = state;
  const header = document.getElementById("state"), words = document.getElementById("headline");
  header.dataset.level = document.body.dataset.level = level;
  if (words.textContent !== headline) words.textContent = headline;
  document.title = `${{ good: "", warn: "! ", waiting: "… " }[level] ?? "✖ "}portisolate: ${headline}`;
  document.getElementById("live").textContent = state.at && !state.failure
    ? `${state.linked ? "live" : "asking now and then"}, as of ${clockText(state.at)}` : "";
  if (!status) return;
  document.getElementById("facts").replaceChildren(...facts(status).map(([name, value]) =>
    element("div", {}, element("dt", { textContent: name }),
      element("dd", { textContent: value, className: tone(name, value) }))));
  document.getElementById("problems").replaceChildren(
    ...status.problems.map((text) =>
      element("li", { textContent: text, className: text.startsWith("pending") ? "warn" : "bad" })),
    ...status.notes.map((text) => element("li", { textContent: text, className: "note" })));
}

const VERDICTS = { forwards: ["passes", "good"], blocked: ["is blocked", "bad"],
  partly: ["passes over some member ports only", "warn"] };

function dropText({ packets, bytes }) {
  if (packets === null || packets === undefined) return "not counted";
  return `${packets.toLocaleString()} packets, ${(bytes ?? 0).toLocaleString()} bytes`;
}

function directionBox(answer) {
  const [verdict, level] = VERDICTS[answer.hardware];
  const fact = (name, ...texts) => [element("dt", { textContent: name }),
    ...texts.map(([text, className = ""]) => element("dd", { textContent: text, className }))];
  const reasons = answer.reasons.length ? answer.reasons : ["nothing blocks it"];
  const scope = answer.vlan ? ` in VLAN ${answer.vlan}` : "";
  return element("article", {},
    element("h3", {}, `${answer.from} → ${answer.to}${scope} `, element("b", { textContent: verdict, className: level })),
    element("dl", {},
      ...fact("tables", ...reasons.map((text) => [text]), ...answer.notes.map((text) => [text, "faint"])),
      ...fact("hardware", [answer.hardwareReason || "nothing blocks it"]),
      ...fact("dropped", [dropText(answer)])),
    answer.agree ? null : element("p", { className: "bad",
      textContent: `They disagree: by the tables traffic ${VERDICTS[answer.tables][0]}, by the hardware it ${verdict}.` }));
}

export function showAnswer(directions) {
  document.getElementById("answer").replaceChildren(...directions.map(directionBox));
}

export function showNoAnswer(words) {
  document.getElementById("answer").replaceChildren(element("p", { textContent: words, className: "bad" }));
}

const kept = [];
const KINDS = { request: "requests", event: "events", hardware: "hardware", log: "log", read: "questions" };
const SHOWN = new Set(["request", "event", "log"]);
const ALWAYS = new Set(["dropped", "gap"]);

function kindOf(happening) {
  const text = happening.text ?? happening.sentence ?? "";
  return happening.kind === "request" && /: get( first| next)?$/.test(text) ? "read" : happening.kind;
}

function happeningItem({ kind, happening, text }) {
  const time = happening.time ? new Date(happening.time * 1000) : new Date();
  const words = happening.words ?? (happening.result === "refused" ? "refused" : null);
  const by = happening.program ? `${happening.program}, uid ${happening.uid}` : "";
  return element("li", { className: kind },
    element("time", { textContent: clockText(time), dateTime: time.toISOString() }),
    element("i", { textContent: kind }), element("span", { textContent: text }),
    words && element("b", { textContent: words, className: "bad" }),
    by && element("small", { textContent: by, title: `process ${happening.pid}` }));
}

function wanted({ kind, text }) {
  const words = document.getElementById("words").value.toLowerCase();
  return (SHOWN.has(kind) || ALWAYS.has(kind)) && text.toLowerCase().includes(words);
}

export function addHappening(happening) {
  const dropped = happening.kind === "dropped" && `${happening.count ?? "some"} more, which came too fast`;
  const entry = { kind: kindOf(happening), happening, text: dropped || (happening.text ?? happening.sentence ?? "") };
  kept.unshift(entry);
  const gone = kept.length > KEPT && kept.pop();
  const list = document.getElementById("happenings");
  if (gone && wanted(gone)) list.lastElementChild?.remove();
  if (wanted(entry)) list.prepend(happeningItem(entry));
}

function showHappenings() {
  document.getElementById("happenings").replaceChildren(...kept.filter(wanted).map(happeningItem));
}

export function makeHappenings() {
  const form = document.getElementById("kinds");
  form.addEventListener("submit", (event) => event.preventDefault());
  form.addEventListener("input", showHappenings);
  for (const [kind, name] of Object.entries(KINDS)) {
    const box = element("input", { type: "checkbox", checked: SHOWN.has(kind) });
    box.addEventListener("input", () => (box.checked ? SHOWN.add(kind) : SHOWN.delete(kind)));
    form.append(element("label", { className: "tick" }, box, ` ${name}`));
  }
}

// Each row in words: to whom it may not talk, mark by mark.
export function showTable(view) {
  const marks = [BOTH, ONE_WAY, IN_VLAN, PARTLY, SPANS];
  const head = element("tr", {}, ...["interface", ...marks.map((mark) => MARKS[mark].text)].map((text) =>
    element("th", { textContent: text, scope: "col" })));
  const body = view.rows.map((bundle, row) => {
    const cells = marks.map((mark) => {
      const names = view.columns.flatMap((other, column) => (markOf(view, row, column) === mark
        ? [bundleName(view, other) + within(view, row, column)] : []));
      const rest = names.length - NAMES_MAX;
      const more = rest > 0 ? ` and ${rest} more` : "";
      return element("td", { textContent: names.slice(0, NAMES_MAX).join(", ") + more });
    });
    return element("tr", {}, element("th", { textContent: bundleName(view, bundle), scope: "row" }), ...cells);
  });
  document.getElementById("table").replaceChildren(
    element("table", {}, element("thead", {}, head), element("tbody", {}, ...body)));
}

function within(view, row, column) {
  const place = placeOf(view, row, column), matrix = view.matrix;
  const what = matrix.vlans.get(place) ?? matrix.groups.get(place);
  return what ? ` (${what})` : "";
}
