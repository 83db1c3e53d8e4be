// What the server is asked, and what it tells by itself. A server that wants a token gets it with every question, which
// is why the stream of events is read here and not by the browser's own reader, which can send none.

const ANSWER_MS = 10000;  // after which an answer does not come any more
const LOOK_MS = 4000;     // between two looks at the state, which find what nothing tells
const POLL_MS = 2000;     // the same while nothing can be told, and between two tries to be told
const SILENT_MS = 40000;  // after which a stream without a sign of life is dead
const KEPT_TOKEN = "token";
export const LOOK_LIMIT_MS = 5000;
export const NEEDS_TOKEN = 401;

function get(path, signal) {
  const token = sessionStorage.getItem(KEPT_TOKEN);
  const headers = token ? { Authorization: `Bearer ${token}` } : {};
  return fetch(`api/v1/${path}`, { cache: "no-store", signal, headers });
}

export function keepToken(token) {
  sessionStorage.setItem(KEPT_TOKEN, token);
}

// Ends with an error in words where there is no answer.
export async function ask(path, limit = ANSWER_MS) {
  const silent = () => { throw new Error("the server does not answer"); };
  const response = await get(path, AbortSignal.timeout(limit)).catch(silent);
  const answer = await response.json().catch(() => null);
  if (response.ok && answer !== null) return answer;
  const words = answer?.error?.words ?? `the server answers ${response.status}`;
  throw Object.assign(new Error(words), { status: response.status });
}

export function query(values) {
  const text = new URLSearchParams(Object.entries(values).filter(([, value]) => value)).toString();
  return text && `?${text}`;
}

// Hands over each event until the stream ends; ends with an error where there is none.
async function readEvents(opened, tell) {
  const silence = new AbortController();
  let timer = setTimeout(() => silence.abort(), ANSWER_MS), rest = "";
  const response = await get("events", silence.signal);
  if (!response.ok) throw new Error(`no events: ${response.status}`);
  opened();
  const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
  for (let part = await reader.read(); !part.done; part = await reader.read()) {
    clearTimeout(timer);
    timer = setTimeout(() => silence.abort(), SILENT_MS);
    const blocks = (rest + part.value).split("\n\n");
    rest = blocks.pop();
    for (const block of blocks) {
      const field = (name) => block.match(new RegExp(`^${name}: ?(.*)$`, "m"))?.[1];
      if (field("event")) tell(field("event"), field("data"));
    }
  }
}

const pause = (milliseconds) => new Promise((done) => { setTimeout(done, milliseconds); });

// Follows the server: `told` gets what happens, `changed` is called when something is to be asked for anew, `linked`
// with whether the server tells what happens, and `look` now and then.
export function follow({ told, changed, linked, look }) {
  let open = false;
  const turn = (now) => {
    if (open === now) return;
    open = now;
    linked(now);
    changed();
  };
  const tell = (kind, data) => (kind === "changed" ? changed() : told({ ...JSON.parse(data), kind }));
  const listen = async () => {
    await readEvents(() => turn(true), tell).catch(() => {});
    turn(false);
    setTimeout(listen, POLL_MS);
  };
  const watch = async () => {
    for (;;) {
      if (!document.hidden) await (open ? look() : changed());
      await pause(open ? LOOK_MS : POLL_MS);
    }
  };
  document.addEventListener("visibilitychange", () => { if (!document.hidden) changed(); });
  listen();
  watch();
}
