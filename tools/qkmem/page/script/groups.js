// Rows of a run by tag, handle or line, and which of them one looks at.
import {countText} from './format.js';
import {handleName} from './data.js';

const SHOWN_GROUPS = 10;  // as many as have colours of their own

/** What rows are called, and looked for by. */
export class Names {
  constructor(data) {
    this.data = data;
  }

  line(row) {
    if (row.rest !== undefined) {
      return `${countText(row.rest)} more${row.handle === undefined ? ', of other handles' : ''}`;
    }
    return this.data.lines[row.line].name;
  }

  handle(row) {
    return row.handle === undefined ? '' : handleName(this.data.handles[row.handle]);
  }

  tag(row) {
    const tag = row.handle === undefined ? '' : this.data.handles[row.handle].tag;
    return tag === '' ? 'no tag' : tag;
  }

  /** The calls that have led to the row, from the line outwards. */
  calls(row) {
    return (row.stack ?? []).map((number) => this.data.frames[number]);
  }

  /** What tells groups apart. */
  key(row, by) {
    if (by === 'tag') return `tag:${this.tag(row)}`;
    if (by === 'handle') return `handle:${this.handle(row)}`;
    return `line:${row.line ?? `rest ${row.handle}`} ${row.handle}`;
  }

  /** What a group is called. */
  group(row, by) {
    if (by === 'tag') return this.tag(row);
    if (by === 'handle') return row.handle === undefined ? 'other handles' : this.handle(row);
    return `${this.line(row)} · ${this.handle(row)}`;
  }

  /** All that one can look for. */
  text(row) {
    const path = row.line === undefined ? '' : this.data.lines[row.line].path;
    const calls = this.calls(row).map((call) => `${call.name} ${call.function ?? ''}`);
    return [this.line(row), this.handle(row), path, ...calls].join('\n').toLowerCase();
  }
}

/** Whether one looks at a row. */
function matcher(names, state) {
  const {only, find} = state;
  const words = find.toLowerCase().split(/\s+/).filter((word) => word !== '');
  const frame = only.startsWith('frame:') ? Number(only.slice(6)) : undefined;
  const by = only.slice(0, only.indexOf(':'));
  return (row) => {
    if (frame !== undefined) {
      if (!(row.stack ?? []).includes(frame)) return false;
    } else if (only !== '' && names.key(row, by) !== only) {
      return false;
    }
    if (words.length === 0) return true;
    row.text ??= names.text(row);
    return words.every((word) => row.text.includes(word));
  };
}

/** The numbers of the rows that one looks at. */
export function chosenRows(run, names, state) {
  const matches = matcher(names, state);
  const chosen = [];
  run.rows.forEach((row, number) => {
    if (matches(row)) chosen.push(number);
  });
  return chosen;
}

/** Rows in groups, each with its name; in the order in which they appear. */
export function grouped(run, names, rows, by) {
  const groups = new Map();
  for (const number of rows) {
    const row = run.rows[number];
    const key = names.key(row, by);
    if (!groups.has(key)) groups.set(key, {key, name: names.group(row, by), rows: []});
    groups.get(key).rows.push(number);
  }
  return [...groups.values()];
}

/** Sums pairs of bytes and blocks. */
export function sum(rows, amountOf) {
  const all = [0, 0];
  for (const row of rows) {
    const [bytes, blocks] = amountOf(row);
    all[0] += bytes;
    all[1] += blocks;
  }
  return all;
}

/** The colour of each group of a run, which stays the same whatever one looks at. */
export function coloursOf(run, names, by) {
  const groups = grouped(run, names, run.rows.keys(), by);
  const most = (group) => sum(group.rows, (row) => run.rows[row].own_peak)[0];
  groups.sort((one, other) => most(other) - most(one));
  return new Map(groups.slice(0, SHOWN_GROUPS).map((group, i) => [group.key, i]));
}

/** The groups that have colours, and one of all others. */
export function colouredGroups(run, names, rows, by) {
  const colours = coloursOf(run, names, by);
  const others = {key: '', name: 'others', rows: [], colour: -1};
  const shown = [];
  for (const group of grouped(run, names, rows, by)) {
    if (colours.has(group.key)) {
      shown.push({...group, colour: colours.get(group.key)});
    } else {
      others.rows.push(...group.rows);
    }
  }
  shown.sort((one, other) => one.colour - other.colour);
  if (others.rows.length !== 0) shown.push(others);
  return shown;
}

/** What is selected by a group's key, in words. */
export function selectionName(data, names, run, only) {
  if (only.startsWith('frame:')) return data.frames[Number(only.slice(6))]?.name ?? only;
  const by = only.slice(0, only.indexOf(':'));
  const row = run.rows.find((candidate) => names.key(candidate, by) === only);
  return row === undefined ? only.slice(only.indexOf(':') + 1) : names.group(row, by);
}
