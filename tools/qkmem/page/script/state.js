// What one looks at: kept in the address behind #, so that a link shows what one saw.

/** What `run` is in place of a number: two runs side by side. */
export const CHANGE = 'change';

const USUAL = {
  run: 0,
  by: 'tag',
  at: null,  // number of a moment
  from: -1,  // numbers of moments; -1 is the begin
  to: null,
  only: '',  // key of a group
  find: '',
  sort: '',  // key of a column, with - if it falls
};

export class State {
  /** Fills in what the address doesn't say from the data. */
  constructor(data) {
    this.data = data;
    this.watchers = [];
    this.readAddress();
    window.addEventListener('hashchange', () => {
      if (location.hash === this.written) return;
      this.readAddress();
      this.tell();
    });
  }

  /** The run that is shown; of two that are compared the later one. */
  get shown() {
    return this.data.runs[this.isChange ? 1 : this.run];
  }

  get isChange() {
    return this.run === CHANGE;
  }

  readAddress() {
    const given = new URLSearchParams(location.hash.slice(1));
    Object.assign(this, USUAL);
    this.by = this.usualWay();
    if (this.data.runs.length > 1) this.run = CHANGE;
    for (const key of Object.keys(USUAL)) {
      if (!given.has(key)) continue;
      const text = given.get(key);
      this[key] = ['at', 'from', 'to'].includes(key) ? Number.parseInt(text, 10) : text;
    }
    this.run = this.run === CHANGE && this.data.runs.length > 1 ? CHANGE : Number(this.run) || 0;
    this.settle();
  }

  hasTags() {
    return this.data.handles.some((handle) => handle.tag !== '');
  }

  /** The first that tells anything apart. */
  usualWay() {
    const {handles} = this.data;
    if (new Set(handles.map((handle) => handle.tag)).size > 1) return 'tag';
    return handles.length > 1 ? 'handle' : 'line';
  }

  /** Takes what can't be to what can. */
  settle() {
    if (!this.isChange && !this.data.runs[this.run]) this.run = 0;
    if (!['tag', 'handle', 'line'].includes(this.by)) this.by = this.usualWay();
    if (this.by === 'tag' && !this.hasTags()) this.by = 'handle';
    const last = this.shown.last_moment;
    const within = (moment, least, usual) =>
        Number.isInteger(moment) ? Math.min(Math.max(moment, least), last) : usual;
    this.to = within(this.to, 0, last);
    this.from = Math.min(within(this.from, -1, -1), this.to - 1);
    this.at = Math.min(Math.max(within(this.at, 0, this.shown.peak_moment), this.from), this.to);
    this.at = Math.max(this.at, 0);
  }

  /** Changes what one looks at, and all that shows it. */
  set(change) {
    if ('run' in change && change.run !== this.run) {
      Object.assign(this, {at: null, from: -1, to: null});
    }
    Object.assign(this, change);
    this.settle();
    this.writeAddress();
    this.tell();
  }

  writeAddress() {
    const words = new URLSearchParams();
    for (const key of Object.keys(USUAL)) {
      if (this[key] !== '' && this[key] !== null) words.set(key, this[key]);
    }
    this.written = `#${words}`;
    // A page from the disk has no address that scripts may change in some browsers.
    try {
      history.replaceState(null, '', this.written);
    } catch {
      location.replace(this.written);
    }
  }

  watch(show) {
    this.watchers.push(show);
  }

  tell() {
    for (const show of this.watchers) show(this);
  }
}
