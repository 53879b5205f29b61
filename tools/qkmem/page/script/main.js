// Puts the page together.
import {CHANGE, State} from './state.js';
import {Left, Table} from './table.js';
import {Names, selectionName, sum} from './groups.js';
import {Parts} from './parts.js';
import {Timeline, timeText} from './timeline.js';
import {element} from './elements.js';
import {readData} from './data.js';
import {sizeText} from './format.js';

/** What can be chosen above the plots. */
class Controls {
  constructor(data, names, state) {
    Object.assign(this, {data, names, state});
    this.by = document.getElementById('by');
    this.runs = document.getElementById('runs');
    this.find = document.getElementById('find');
    this.only = document.getElementById('only');
    this.moment = document.getElementById('moment');
    this.fillRuns();
    this.by.addEventListener('change', () => state.set({by: this.by.value}));
    this.runs.addEventListener('change', () => {
      const {value} = this.runs;
      state.set({run: value === CHANGE ? CHANGE : Number(value)});
    });
    this.find.addEventListener('input', () => state.set({find: this.find.value}));
    const at = (id, change) =>
        document.getElementById(id).addEventListener('click', () => state.set(change()));
    at('peak', () => this.lookAt(state.shown.peak_moment));
    at('end', () => this.lookAt(state.shown.last_moment));
    at('reset', () => ({from: -1, to: null, only: '', find: ''}));
    document.addEventListener('keydown', (event) => this.onKey(event));
  }

  fillRuns() {
    const {runs} = this.data;
    if (!this.state.hasTags()) this.by.querySelector('[value=tag]').remove();
    if (runs.length === 1) return;
    this.runs.append(element('option', {value: CHANGE}, 'change'),
        ...runs.map((run, i) =>
            element('option', {value: i}, `${i === 0 ? 'before' : 'after'}: ${run.name}`)));
    this.runs.closest('label').hidden = false;
  }

  /** A moment outside of the part that is shown shows the whole again. */
  lookAt(moment) {
    const {from, to} = this.state;
    return moment < from || moment > to ? {at: moment, from: -1, to: null} : {at: moment};
  }

  onKey(event) {
    const isTyping = event.target.matches('input, select');
    if (event.key === 'Escape') {
      this.state.set({from: -1, to: null, only: '', find: ''});
      document.activeElement.blur();
    }
    if (isTyping || event.ctrlKey || event.altKey || event.metaKey) return;
    const run = this.state.shown;
    const change = {
      p: () => this.lookAt(run.peak_moment),
      e: () => this.lookAt(run.last_moment),
      0: () => ({from: -1, to: null}),
      t: () => ({by: 'tag'}),
      h: () => ({by: 'handle'}),
      l: () => ({by: 'line'}),
    }[event.key];
    if (change) this.state.set(change());
    if (event.key === '/') {
      this.find.focus();
      event.preventDefault();
    }
  }

  show() {
    const {state, data, names} = this;
    const run = state.shown;
    this.by.value = state.by;
    this.runs.value = state.run;
    if (this.find.value !== state.find) this.find.value = state.find;
    this.moment.textContent = state.isChange ? 'at the end of both' : this.momentText(run);
    this.only.hidden = state.only === '';
    if (state.only !== '') {
      const name = selectionName(data, names, run, state.only);
      this.only.replaceChildren(`only ${name} `, element('button', {
        type: 'button', 'aria-label': 'show all', click: () => state.set({only: ''})}, '×'));
    }
  }

  momentText(run) {
    const {state} = this;
    const name = state.at === run.peak_moment ? 'at the peak, ' :
        state.at === run.last_moment ? 'at the end, ' : 'at ';
    const bytes = sum(run.rows.keys(), (row) => run.live(row, state.at))[0];
    return `${name}${timeText(run, run.moments[state.at])}: ${sizeText(bytes)}`;
  }
}

/** For what is far below: people see the rest before. */
function afterPaint(draw) {
  requestAnimationFrame(() => setTimeout(draw));
}

async function start() {
  const data = await readData();
  const names = new Names(data);
  const state = new State(data);
  document.documentElement.classList.add('live');
  const controls = new Controls(data, names, state);
  const timeline = new Timeline(data, names, state);
  const parts = new Parts(data, names, state);
  const table = new Table(data, names, state);
  const left = new Left(data, names, state);
  let curvesOf = '';
  const show = () => {
    controls.show();
    // A moment or a part of the run changes no curve.
    const {run, by, only, find} = state;
    const curves = JSON.stringify([run, by, only, find]);
    parts.draw();
    if (curves === curvesOf) {
      timeline.update();
    } else {
      timeline.draw();
      afterPaint(() => left.draw());
    }
    curvesOf = curves;
    table.draw();
  };
  state.watch(show);
  show();
  document.documentElement.classList.add('drawn');
}

start().catch((error) => {
  document.documentElement.classList.remove('live');
  document.getElementById('trouble').textContent = `This page can't be drawn: ${error.message}`;
  document.getElementById('trouble').hidden = false;
});
