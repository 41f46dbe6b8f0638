// api: requests to faxtray-web, each a promise of its answer or of a Refusal.
//
// All addresses are relative, so the page works below any base path. A Refusal with the word "session" is also
// announced as the event "ended"; whoever waits for the answer gets it all the same.

// Why a request brought nothing: `word` is for programs, `message` is the server's, for people. The word "away" is ours:
// no answer came at all.
export class Refusal extends Error {
  constructor(word, message = "") {
    super(message);
    this.word = word;
  }
}

export const events = new EventTarget();

const patience = 60000; // milliseconds that an answer may take

// The name of the logged-in user, and the token without which nothing can be changed.
const session = { user: null, token: null };

export function remember(user, token) {
  session.user = user;
  session.token = token;
}

// Parameters that are null are left out: the user's own inbox has no handle.
export function address(what, parameters = {}) {
  const given = Object.entries(parameters).filter(([, value]) => value !== null && value !== undefined);
  return `api/${what}` + (given.length ? "?" + new URLSearchParams(given) : "");
}

async function answer(url, options, signal) {
  const limit = new AbortController();
  const timer = setTimeout(() => limit.abort(), patience);
  signal?.addEventListener("abort", () => limit.abort());
  try {
    const response = await fetch(url, { ...options, signal: limit.signal, cache: "no-store" });
    const body = await response.json().catch(() => ({}));
    if (response.ok)
      return body;
    throw new Refusal(body.error ?? "away", body.message ?? "");
  } catch (error) {
    throw error instanceof Refusal || signal?.aborted ? error : new Refusal("away");
  } finally {
    clearTimeout(timer);
  }
}

function announce(error) {
  if (error.word === "session")
    events.dispatchEvent(new Event("ended"));
  throw error;
}

export function get(what, parameters, signal) {
  return answer(address(what, parameters), {}, signal).catch(announce);
}

function send(what, body) {
  const headers = { "Content-Type": "application/json" };
  if (session.token)
    headers["X-Faxtray-Token"] = session.token;
  return answer(address(what), { method: "POST", headers, body: JSON.stringify(body) });
}

// After a log-in in another tab of this browser the cookie is new, and so is the token: if the user is the same, the
// request is repeated with it.
export async function post(what, body) {
  try {
    return await send(what, body).catch(async (error) => {
      if (error.word !== "token")
        throw error;
      const now = await get("session");
      if (now.user !== session.user)
        throw new Refusal("session");
      session.token = now.token;
      return send(what, body);
    });
  } catch (error) {
    return announce(error);
  }
}
