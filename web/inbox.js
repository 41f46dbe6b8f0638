// inbox: what is known of one inbox, newest fax first, in step with the server. No part of the page is touched here.
//
// A fax is recognised by its tag, made of name, size and mtime: ids change when faxtrayd starts again.
import { get } from "./api.js";

export class Inbox {
  // `handle` is null for the user's own inbox.
  constructor(handle) {
    this.handle = handle;
    this.faxes = [];
    this.count = null;     // on the server, if known; this.faxes may be the newest of them only
    this.more = false;     // whether the server has older ones
    this.check = null;     // check value of the server's list; null before the first answer
    this.chosen = new Set(); // tags of the faxes with a tick
    this.fresh = new Set();  // tags of those that came while the page was open and were not looked at
    this.stale = false;    // the next answer is to be a whole list, whatever the check value
    this.busy = Promise.resolve();
  }

  find(tag) {
    return this.faxes.find((fax) => fax.tag === tag);
  }

  at(tag) {
    return this.faxes.findIndex((fax) => fax.tag === tag);
  }

  chosenFaxes() {
    return this.faxes.filter((fax) => this.chosen.has(fax.tag));
  }

  // Asks whether anything has changed: a promise of null if not, else of the faxes that are new, none in the first answer.
  refresh() {
    return this.inTurn(async () => {
      const list = await this.ask({ check: this.stale ? null : this.check });
      this.stale = false;
      if (list.unchanged)
        return null;
      const before = this.check === null ? null : new Set(this.faxes.map((fax) => fax.tag));
      await this.merge(list);
      const known = new Set(this.faxes.map((fax) => fax.tag));
      for (const tags of [this.chosen, this.fresh])
        for (const tag of tags)
          if (!known.has(tag))
            tags.delete(tag);
      const added = before ? list.faxes.filter((fax) => !before.has(fax.tag)) : [];
      added.forEach((fax) => this.fresh.add(fax.tag));
      return added;
    });
  }

  // The next older ones; a promise of whether there were any.
  loadMore() {
    return this.inTurn(async () => {
      if (!this.more)
        return false;
      const list = await this.askAfter(this.faxes.at(-1));
      const known = new Set(this.faxes.map((fax) => fax.tag));
      const older = list.faxes.filter((fax) => !known.has(fax.tag));
      this.faxes = this.faxes.concat(older);
      this.more = list.more && list.faxes.length > 0;
      return older.length > 0;
    });
  }

  // Takes the newest faxes from an answer. If the number of faxes says that nothing has changed among the older ones,
  // they stay; otherwise as many as were known are read anew.
  async merge(list) {
    const unread = this.count - this.faxes.length;
    const oldest = list.faxes.at(-1);
    const from = oldest ? this.faxes.findIndex((fax) => fax.tag === oldest.tag && fax.id === oldest.id) : -1;
    const kept = from < 0 ? [] : this.faxes.slice(from + 1);
    let { faxes, more } = list;
    if (more && faxes.length + kept.length + unread === list.count) {
      faxes = faxes.concat(kept);
      more = unread > 0;
    } else {
      while (more && faxes.length < this.faxes.length) {
        const older = await this.askAfter(faxes.at(-1));
        faxes = faxes.concat(older.faxes);
        more = older.more && older.faxes.length > 0;
      }
    }
    Object.assign(this, { faxes, more, check: list.check, count: list.count });
  }

  ask(parameters) {
    return get("faxes", { inbox: this.handle, ...parameters });
  }

  askAfter({ id, tag }) {
    return this.ask({ before: id, tag });
  }

  // One request after another, so that no answer is merged into a list that another has changed meanwhile.
  inTurn(action) {
    const done = this.busy.then(action);
    this.busy = done.catch(() => {});
    return done;
  }
}
