// The lines that allocate, with their figures at the moment and in the part that one looks at.
import {chosenRows, grouped, sum} from './groups.js';
import {changeText, counted, countText, durationText, shareText, sizeText} from './format.js';
import {element} from './elements.js';

const COLUMNS = [
  {key: 'line', title: 'line', text: (entry) => entry.name, isText: true},
  {key: 'handle', title: 'handle', text: (entry) => entry.handle, isText: true},
  {key: 'bytes', title: 'live', hint: 'bytes at the moment', text: (entry) => sizeText(entry.bytes)},
  {key: 'blocks', title: 'blocks', hint: 'live at the moment',
   text: (entry) => countText(entry.blocks)},
  {key: 'share', title: 'share', text: (entry, all) => shareText(entry.bytes, all.bytes)},
  {key: 'change', title: 'change', hint: 'of bytes, over the part that is shown',
   text: (entry) => changeText(entry.change, sizeText)},
  {key: 'made', title: 'made', hint: 'blocks, in the part that is shown',
   text: (entry) => countText(entry.made)},
  {key: 'madeBytes', title: 'bytes made', hint: 'in the part that is shown',
   text: (entry) => sizeText(entry.madeBytes)},
  {key: 'peak', title: 'own peak', hint: 'the most that it has held in the whole run',
   text: (entry) => sizeText(entry.peak)},
  {key: 'short', title: 'short-lived', hint: 'of the blocks of the whole run',
   text: (entry) => entry.madeEver === 0 ? '-' : shareText(entry.short, entry.madeEver)},
  {key: 'life', title: 'mean life', hint: 'of the released blocks',
   text: (entry, all) => entry.life < 0 ? '-' : all.lifeText(entry.life)},
];

const CHANGE_COLUMNS = [
  COLUMNS[0],
  COLUMNS[1],
  {key: 'change', title: 'change', hint: 'of bytes at the end',
   text: (entry) => changeText(entry.change, sizeText)},
  {key: 'blocks', title: 'blocks', hint: 'more or fewer at the end',
   text: (entry) => changeText(entry.blocks, countText)},
  {key: 'before', title: 'before', hint: 'bytes at the end',
   text: (entry) => sizeText(entry.before)},
  {key: 'bytes', title: 'after', hint: 'bytes at the end', text: (entry) => sizeText(entry.bytes)},
  {key: 'made', title: 'made', hint: 'blocks more or fewer',
   text: (entry) => changeText(entry.made, countText)},
];

// More make the page slow and long; the others come when they are asked for.
const SHOWN_LINES = 40;

export class Table {
  constructor(data, names, state) {
    this.data = data;
    this.names = names;
    this.state = state;
    this.place = document.getElementById('table');
    this.caption = document.getElementById('shown');
    this.opened = new Set();
    this.more = document.getElementById('more');
    this.showsAll = false;
    this.more.addEventListener('click', () => {
      this.showsAll = true;
      this.draw();
    });
  }

  draw() {
    const {state} = this;
    const columns = state.isChange ? CHANGE_COLUMNS : COLUMNS;
    const entries = state.isChange ? this.changes() : this.entries();
    const all = this.whole(entries);
    this.sort(entries, columns);
    const shownLines = this.showsAll ? entries : entries.slice(0, SHOWN_LINES);
    this.more.hidden = shownLines.length === entries.length;
    this.more.textContent = `show all ${counted(entries.length, 'line')}`;
    this.place.replaceChildren(
        element('thead', {}, element('tr', {}, ...columns.map((column) => this.heading(column)))),
        element('tbody', {}, ...shownLines.flatMap((entry) => this.rowsOf(entry, columns, all))),
        this.footer(columns, all, entries.length));
    const {groups, shown} = state.shown;
    this.caption.textContent = groups === shown ? '' :
        `${countText(shown)} of ${countText(groups)} lines and stacks have figures of their own; ` +
        'the others are summed by handle.';
  }

  /** A line with its handle, of all the stacks that lead to it. */
  entries() {
    const {state, names} = this;
    const run = state.shown;
    const rows = chosenRows(run, names, state);
    return grouped(run, names, rows, 'line').map((group) => {
      const of = (pick) => group.rows.reduce((all, number) => all + pick(run.rows[number]), 0);
      const [bytes, blocks] = sum(group.rows, (row) => run.live(row, state.at));
      const now = sum(group.rows, (row) => run.made(row, state.to));
      const then = sum(group.rows, (row) => run.made(row, state.from));
      const begin = state.from < 0 ? 0 : sum(group.rows, (row) => run.live(row, state.from))[0];
      const released = of((row) => row.released);
      return {
        ...this.nameOf(run, group),
        bytes,
        blocks,
        share: bytes,
        change: sum(group.rows, (row) => run.live(row, state.to))[0] - begin,
        made: now[1] - then[1],
        madeBytes: now[0] - then[0],
        peak: of((row) => row.own_peak[0]),
        short: of((row) => row.short),
        madeEver: of((row) => row.made[1]),
        life: released === 0 || !run.hasLevels ? -1 : of((row) => row.lives) / released,
      };
    });
  }

  nameOf(run, group) {
    const row = run.rows[group.rows[0]];
    return {
      key: group.key,
      name: this.names.line(row),
      path: row.line === undefined ? '' : this.data.lines[row.line].path,
      handle: this.names.handle(row),
      run,
      rows: group.rows,
    };
  }

  changes() {
    const {state, names, data} = this;
    const entries = new Map();
    data.runs.forEach((run, which) => {
      for (const group of grouped(run, names, chosenRows(run, names, state), 'line')) {
        const [bytes, blocks] = sum(group.rows, (row) => run.live(row, run.last_moment));
        const made = sum(group.rows, (row) => run.made(row, run.last_moment))[1];
        const sign = which === 0 ? -1 : 1;
        const entry = entries.get(group.key) ?? {before: 0, bytes: 0, blocks: 0, made: 0};
        Object.assign(entry, this.nameOf(run, group));
        if (which === 0) entry.before = bytes;
        if (which === 1) entry.bytes = bytes;
        entry.change = entry.bytes - entry.before;
        entry.blocks += sign * blocks;
        entry.made += sign * made;
        entries.set(group.key, entry);
      }
    });
    return [...entries.values()];
  }

  whole(entries) {
    const all = {name: `${counted(entries.length, 'line')}`, handle: ''};
    const sums = ['bytes', 'blocks', 'change', 'made', 'madeBytes', 'before', 'short', 'madeEver'];
    for (const key of sums) {
      all[key] = entries.reduce((sum, entry) => sum + (entry[key] ?? 0), 0);
    }
    all.lifeText = (life) =>
        this.state.shown.clock === 'nanoseconds' ? durationText(life) : countText(life);
    return all;
  }

  /** The column that the rows are sorted by, and whether from the most to the least. */
  order() {
    const {state} = this;
    const sort = state.sort === '' ? (state.isChange ? '-change' : '-bytes') : state.sort;
    return {key: sort.replace('-', ''), falls: sort.startsWith('-')};
  }

  sort(entries, columns) {
    const {state} = this;
    const {key, falls} = this.order();
    const column = columns.find((candidate) => candidate.key === key) ?? columns[2];
    const of = column.isText ? (entry) => column.text(entry) :
        column.key === 'short' ? (entry) => entry.short / Math.max(entry.madeEver, 1) :
        state.isChange ? (entry) => Math.abs(entry[column.key]) : (entry) => entry[column.key];
    entries.sort((one, other) => {
      const [left, right] = [of(one), of(other)];
      if (left === right) return other.bytes - one.bytes;
      return (left < right ? -1 : 1) * (falls ? -1 : 1);
    });
  }

  heading(column) {
    const {state} = this;
    const order = this.order();
    const falls = order.key === column.key && order.falls;
    const rises = order.key === column.key && !order.falls;
    const said = falls ? 'descending' : rises ? 'ascending' : 'none';
    const next = falls || (column.isText && !rises) ? column.key : `-${column.key}`;
    return element('th', {scope: 'col', 'aria-sort': said, class: column.isText ? 'text' : ''},
        element('button', {type: 'button', title: column.hint, 'data-sort': column.key,
                           click: () => {
                             state.set({sort: next});
                             this.place.querySelector(`[data-sort=${column.key}]`).focus();
                           }}, column.title));
  }

  rowsOf(entry, columns, all) {
    const stacks = this.stacksOf(entry);
    const isOpen = this.opened.has(entry.key) && stacks.length !== 0;
    const toggle = () => {
      if (!this.opened.delete(entry.key)) this.opened.add(entry.key);
      this.draw();
      this.place.querySelector(`[data-key="${CSS.escape(entry.key)}"]`)?.focus();
    };
    const cell = (column) => {
      if (column.key !== 'line') {
        return this.cell(column, entry, all);
      }
      const name = stacks.length === 0 ? column.text(entry) : element('button', {
        type: 'button', class: 'opener', 'aria-expanded': String(isOpen), 'data-key': entry.key,
        click: toggle,
      }, column.text(entry));
      return element('th', {scope: 'row', class: 'text', title: entry.path}, name);
    };
    const row = element('tr', {}, ...columns.map(cell));
    if (!isOpen) return [row];
    return [row, element('tr', {class: 'stacks'},
        element('td', {colspan: columns.length}, ...stacks))];
  }

  /** A rounded figure has the exact one behind it. */
  cell(column, entry, all) {
    const text = column.text(entry, all);
    const isRounded = /[KMGTPE]iB$/.test(text);
    return element('td', {
      class: column.isText ? 'text' : '',
      title: isRounded ? `${countText(entry[column.key])} B` : undefined,
    }, text);
  }

  /** The stacks that lead to a line, with what is live of each. */
  stacksOf(entry) {
    const {names, state} = this;
    const {run} = entry;
    const at = state.isChange ? run.last_moment : state.at;
    const rows = entry.rows.filter((number) => names.calls(run.rows[number]).length !== 0)
        .sort((one, other) => run.live(other, at)[0] - run.live(one, at)[0]);
    return rows.map((number) => stackOf(names.calls(run.rows[number]), run.live(number, at)));
  }

  footer(columns, all, count) {
    const sums = new Set(['bytes', 'blocks', 'change', 'made', 'madeBytes', 'before']);
    if (count === 0) {
      return element('tfoot', {}, element('tr', {}, element('td', {
        class: 'text', colspan: columns.length}, 'Nothing is like that.')));
    }
    return element('tfoot', {}, element('tr', {}, ...columns.map((column) =>
        sums.has(column.key) && !column.isText ? this.cell(column, all, all) :
            element('td', {class: column.isText ? 'text' : ''},
                column.isText ? column.text(all, all) : ''))));
  }
}

/** A stack with what it holds, from the line outwards. */
export function stackOf(calls, [bytes, blocks]) {
  return element('figure', {class: 'stack'},
      element('figcaption', {}, `${sizeText(bytes)} in ${counted(blocks, 'block')}`),
      element('ol', {}, ...calls.map((call) => element('li', {},
          element('span', {title: call.function ?? call.name}, call.name)))));
}

/** Who has blocks that were never released, with the stacks. */
export class Left {
  constructor(data, names, state) {
    this.names = names;
    this.state = state;
    this.place = document.getElementById('left-list');
  }

  draw() {
    const {names, state} = this;
    const run = state.shown;
    const rows = chosenRows(run, names, state).filter((number) => run.rows[number].left[1] !== 0);
    const all = sum(rows, (number) => run.rows[number].left);
    const groups = grouped(run, names, rows, 'line')
        .map((group) => ({...group, left: sum(group.rows, (number) => run.rows[number].left)}))
        .sort((one, other) => other.left[0] - one.left[0]);
    document.getElementById('left-sum').textContent = rows.length === 0 ? 'Nothing is left.' :
        `${sizeText(all[0])} in ${counted(all[1], 'block')}.`;
    this.place.replaceChildren(...groups.map((group) => this.item(run, group, all[0])));
  }

  item(run, group, all) {
    const [bytes, blocks] = group.left;
    const stacks = group.rows.filter((number) => this.names.calls(run.rows[number]).length !== 0)
        .map((number) => stackOf(this.names.calls(run.rows[number]), run.rows[number].left));
    const title = [element('b', {}, sizeText(bytes)), ` in ${counted(blocks, 'block')}, `,
                   `${shareText(bytes, all)}: `, group.name];
    return element('li', {}, stacks.length === 0 ? element('p', {}, ...title) :
        element('details', {}, element('summary', {}, ...title), ...stacks));
  }
}
