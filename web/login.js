// login: the form for user name and password.
import { post } from "./api.js";
import { byId } from "./dom.js";
import { reason } from "./notices.js";
import { t } from "./texts.js";

const known = { login: "login.wrong", locked: "login.locked", unreachable: "login.unreachable" };

let note = "";
let entered = () => {};

// `then` is called after each log-in.
export function start(then) {
  entered = then;
  byId("login-form").addEventListener("submit", (event) => {
    event.preventDefault();
    submit(event.submitter);
  });
}

// Shows the form, with the reason why in a text of the table, or none.
export function show(why = "") {
  note = why;
  byId("password").value = "";
  byId("login").hidden = false;
  draw();
  byId(byId("user").value ? "password" : "user").focus();
}

export function draw() {
  byId("login-note").textContent = note && t(note);
  byId("login-note").className = Object.values(known).includes(note) ? "warning" : "soft";
}

async function submit(button) {
  button.disabled = true;
  try {
    await post("login", { user: byId("user").value, password: byId("password").value });
    byId("login").hidden = true;
    byId("password").value = "";
    await entered();
  } catch (error) {
    note = known[error.word] ?? "login.unreachable";
    draw();
    if (!known[error.word] && error.message)
      byId("login-note").textContent = t("page.failed", { reason: reason(error) });
    byId("password").select();
  } finally {
    button.disabled = false;
  }
}
