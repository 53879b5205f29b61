// Bytes over time, stacked by groups, and the part of the run that one looks at.
import {colouredGroups, chosenRows, sum} from './groups.js';
import {countText, durationText, sizeText} from './format.js';
import {element, onDemand, tableOf} from './elements.js';

const HEIGHT = 280;
const OVERVIEW_HEIGHT = 48;
const LISTED_MOMENTS = 24;

/** The time of a moment in words. */
export function timeText(run, time) {
  return run.clock === 'nanoseconds' ? durationText(time) : `event ${countText(time)}`;
}

function colourOf(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

export function groupColour(colour) {
  return colourOf(colour < 0 ? '--others' : `--group-${colour}`);
}

/**
 * The level of some rows in each bucket, in bytes: when the whole run had most in the bucket, so
 * that rows add up. What is shown alone is shown with the most that it had.
 */
export function levelsOf(run, rows, isAlone = false) {
  const levels = new Float64Array(run.buckets);
  const add = (matrix) => {
    for (const row of rows) {
      const begin = row * run.buckets;
      for (let i = 0; i < run.buckets; ++i) levels[i] += matrix[begin + i];
    }
  };
  add(run.levels);
  if (isAlone && rows.length === 1) add(run.mores);
  for (let i = 0; i < run.buckets; ++i) levels[i] *= run.stepBytes;
  return levels;
}

/** Steps of an axis of bytes: powers of two and halves of them. */
const BYTE_STEPS = Array.from({length: 62}, (_, i) => 2 ** i);

export class Timeline {
  constructor(data, names, state) {
    this.data = data;
    this.names = names;
    this.state = state;
    this.place = document.getElementById('plot');
    this.overview = document.getElementById('overview');
    this.legend = document.getElementById('legend');
    this.showTable = onDemand(document.getElementById('plot-table'), () => this.table());
    this.drag = undefined;
    this.listen();
    new ResizeObserver(() => this.resize()).observe(this.place);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.draw());
  }

  /** Everything anew: groups, rows or the run are others. */
  draw() {
    const run = this.state.shown;
    const hasLevels = this.state.isChange ? this.data.runs.every((one) => one.hasLevels)
                                          : run.hasLevels;
    document.getElementById('over-time').hidden = !hasLevels;
    if (!hasLevels) return;
    this.run = run;
    this.curves = this.state.isChange ? this.curvesOfRuns() : this.curvesOfGroups();
    this.drawPlot();
    this.drawOverview();
    this.update();
  }

  curvesOfGroups() {
    const rows = chosenRows(this.run, this.names, this.state);
    return colouredGroups(this.run, this.names, rows, this.state.by).map((group) => ({
      ...group,
      levels: levelsOf(this.run, group.rows, rows.length === 1),
      isStacked: true,
    }));
  }

  /** Each run has its own time, from its begin to its end. */
  curvesOfRuns() {
    return this.data.runs.map((run, i) => ({
      key: '',
      name: `${i === 0 ? 'before' : 'after'}: ${run.name}`,
      colour: i,
      rows: [],
      levels: levelsOf(run, chosenRows(run, this.names, this.state)),
      isStacked: false,
    }));
  }

  drawPlot() {
    this.plot?.destroy();
    const {run, curves} = this;
    const times = Array.from({length: run.buckets}, (_, i) => run.timeOf(i));
    const sums = [];
    curves.forEach((curve, i) => {
      sums.push(curve.levels.map((level, at) =>
          level + (curve.isStacked && i > 0 ? sums[i - 1][at] : 0)));
    });
    const text = colourOf('--text-quiet');
    const grid = {stroke: colourOf('--line'), width: 1};
    const font = '12px system-ui, sans-serif';
    // Those on top are drawn first, and the ones below over them.
    const order = curves.map((_, i) => curves.length - 1 - i);
    this.plot = new uPlot({
      width: this.place.clientWidth || 800,
      height: HEIGHT,
      legend: {show: false},
      cursor: {points: {show: false}, y: false, drag: {x: true, y: false, setScale: false}},
      scales: {x: {time: false}, y: {range: (_, __, most) => [0, most * 1.05 || 1]}},
      axes: [
        {stroke: text, grid, ticks: grid, font,
         values: (_, splits) => splits.map((at) => timeText(run, at))},
        {stroke: text, grid, ticks: grid, font, size: 72, incrs: BYTE_STEPS,
         values: (_, splits) => splits.map((at) => sizeText(at))},
      ],
      series: [{}, ...order.map((i) => ({
        stroke: groupColour(curves[i].colour),
        fill: curves[i].isStacked ? groupColour(curves[i].colour) : undefined,
        width: curves[i].isStacked ? 0 : 2,
        points: {show: false},
      }))],
      hooks: {
        draw: [(plot) => this.drawMarks(plot)],
        setSelect: [(plot) => this.takeSelection(plot)],
      },
    }, [times, ...order.map((i) => sums[i])], this.place);
    this.whole = sums.at(-1) ?? new Float64Array(run.buckets);
  }

  /** Snapshots of the program, the peak, and the moment that one looks at. */
  drawMarks(plot) {
    const {run, state} = this;
    if (state.isChange) return;
    const {ctx} = plot;
    const {left, top, width, height} = plot.bbox;
    const ratio = devicePixelRatio;
    ctx.save();
    ctx.beginPath();
    ctx.rect(left, top, width, height);
    ctx.clip();
    ctx.font = `${12 * ratio}px system-ui, sans-serif`;
    const mark = (time, colour, dash, name) => {
      const x = Math.round(plot.valToPos(time, 'x', true));
      ctx.strokeStyle = ctx.fillStyle = colour;
      ctx.lineWidth = ratio;
      ctx.setLineDash(dash);
      ctx.beginPath();
      ctx.moveTo(x, top);
      ctx.lineTo(x, top + height);
      ctx.stroke();
      const fits = x + 6 * ratio + ctx.measureText(name).width < left + width;
      ctx.textAlign = fits ? 'left' : 'right';
      ctx.fillText(name, x + (fits ? 5 : -5) * ratio, top + 14 * ratio);
    };
    for (const snapshot of run.snapshots) {
      mark(snapshot.time, colourOf('--text-quiet'), [ratio, 3 * ratio], snapshot.name);
    }
    const isAtPeak = state.at === run.peak_moment;
    if (!isAtPeak) mark(run.peak, colourOf('--text-quiet'), [4 * ratio, 4 * ratio], 'peak');
    mark(run.moments[state.at], colourOf('--text'), [], isAtPeak ? 'peak' : '');
    ctx.restore();
  }

  /** A dragged part becomes what one looks at; a click a moment. */
  takeSelection(plot) {
    const {left, width} = plot.select;
    if (width === 0) return;
    plot.setSelect({left: 0, width: 0, top: 0, height: 0}, false);
    this.zoom(plot.posToVal(left, 'x'), plot.posToVal(left + width, 'x'));
  }

  zoom(begin, end) {
    const {run} = this;
    const from = begin <= run.begin ? -1 : run.momentAt(begin);
    const to = Math.max(run.momentAt(end), from + 1);
    this.state.set({from, to});
  }

  /** What one looks at is another part or moment, of the same curves. */
  update() {
    const {run, state} = this;
    if (!this.plot || document.getElementById('over-time').hidden) return;
    const begin = state.from < 0 ? run.begin : run.moments[state.from];
    const end = run.moments[state.to];
    const [first, last] = [run.bucketOf(begin), run.bucketOf(end)];
    let most = 0;
    for (let i = first; i <= last; ++i) most = Math.max(most, this.whole[i]);
    if (state.isChange) {
      for (const curve of this.curves) {
        for (let i = first; i <= last; ++i) most = Math.max(most, curve.levels[i]);
      }
    }
    this.plot.batch(() => {
      this.plot.setScale('x', {min: begin, max: end});
      this.plot.setScale('y', {min: 0, max: most});
    });
    this.plot.redraw(false);
    this.place.setAttribute('aria-label', this.description(begin, end, most));
    this.updateLegend();
    this.updateOverview();
    this.showTable();
  }

  description(begin, end, most) {
    const {run, state} = this;
    return `Bytes over time from ${timeText(run, begin)} to ${timeText(run, end)}, at most ` +
        `${sizeText(most)}. Looking at ${timeText(run, run.moments[state.at])}. Arrow keys move ` +
        'to other moments; the table below has the figures.';
  }

  updateLegend() {
    const {run, state} = this;
    this.legend.replaceChildren(...this.curves.map((curve) => {
      const bytes = state.isChange ? '' :
          sizeText(sum(curve.rows, (row) => run.live(row, state.at))[0]);
      const swatch = element('span', {class: `swatch group-${curve.colour}`});
      const isOnly = curve.key !== '' && state.only === curve.key;
      return element('li', {}, element('button', {
        type: 'button',
        disabled: curve.key === '',
        'aria-pressed': String(isOnly),
        click: () => state.set({only: isOnly ? '' : curve.key}),
      }, swatch, element('span', {}, curve.name), element('b', {}, bytes)));
    }));
  }

  table() {
    const {run, state} = this;
    const {from, to} = state;
    const step = Math.max(Math.ceil((to - from) / LISTED_MOMENTS), 1);
    const moments = [];
    for (let moment = Math.max(from, 0); moment <= to; moment += step) moments.push(moment);
    const curves = state.isChange ? [] : this.curves;
    return tableOf('Bytes over time', ['time', ...curves.map((curve) => curve.name), 'all'],
        moments.map((moment) => {
          const parts = curves.map((curve) => sum(curve.rows, (row) => run.live(row, moment))[0]);
          const rows = chosenRows(run, this.names, state);
          return [timeText(run, run.moments[moment]), ...parts.map(sizeText),
                  sizeText(sum(rows, (row) => run.live(row, moment))[0])];
        }));
  }

  drawOverview() {
    const {run, whole} = this;
    const width = 1000;
    const most = Math.max(...whole, 1);
    let path = `M0,${OVERVIEW_HEIGHT}`;
    for (let i = 0; i < run.buckets; ++i) {
      const x = (width * i / run.buckets).toFixed(1);
      path += `L${x},${(OVERVIEW_HEIGHT * (1 - whole[i] / most)).toFixed(1)}`;
    }
    this.brush = element('rect', {class: 'brush', y: 0, height: OVERVIEW_HEIGHT});
    this.overview.replaceChildren(element('svg', {
      viewBox: `0 0 ${width} ${OVERVIEW_HEIGHT}`,
      preserveAspectRatio: 'none',
    }, element('path', {class: 'level', d: `${path}L${width},${OVERVIEW_HEIGHT}Z`}), this.brush));
  }

  updateOverview() {
    const {run, state} = this;
    const part = (time) => 1000 * (time - run.begin) / Math.max(run.end - run.begin, 1);
    const begin = state.from < 0 ? 0 : part(run.moments[state.from]);
    this.brush.setAttribute('x', begin);
    this.brush.setAttribute('width', Math.max(part(run.moments[state.to]) - begin, 2));
    const end = timeText(run, run.moments[state.to]);
    this.overview.setAttribute('aria-valuemin', 0);
    this.overview.setAttribute('aria-valuemax', run.last_moment);
    this.overview.setAttribute('aria-valuenow', state.to);
    this.overview.setAttribute('aria-valuetext',
        `${timeText(run, state.from < 0 ? run.begin : run.moments[state.from])} to ${end}`);
  }

  resize() {
    if (this.plot && this.place.clientWidth !== 0) {
      this.plot.setSize({width: this.place.clientWidth, height: HEIGHT});
    }
  }

  listen() {
    this.place.addEventListener('click', (event) => {
      const {plot, state} = this;
      if (!plot || state.isChange) return;
      const left = event.clientX - plot.over.getBoundingClientRect().left;
      const at = this.run.momentAt(plot.posToVal(left, 'x'));
      if (at >= state.from && at <= state.to && event.detail === 1 && !this.wasDragged(left)) {
        state.set({at});
      }
    });
    this.place.addEventListener('pointerdown', (event) => {
      this.pressed = event.clientX;
    });
    this.place.addEventListener('dblclick', () => this.state.set({from: -1, to: null}));
    this.place.addEventListener('keydown', (event) => this.onKey(event));
    this.overview.addEventListener('keydown', (event) => this.onOverviewKey(event));
    this.overview.addEventListener('pointerdown', (event) => {
      this.overview.setPointerCapture(event.pointerId);
      this.drag = this.timeAt(event);
    });
    this.overview.addEventListener('pointerup', (event) => {
      if (this.drag === undefined) return;
      const ends = [this.drag, this.timeAt(event)].sort((one, other) => one - other);
      this.drag = undefined;
      this.zoom(...ends);
    });
  }

  wasDragged(left) {
    const pressed = this.pressed - this.plot.over.getBoundingClientRect().left;
    return Math.abs(pressed - left) > 3;
  }

  timeAt(event) {
    const {left, width} = this.overview.getBoundingClientRect();
    const part = Math.min(Math.max((event.clientX - left) / width, 0), 1);
    return this.run.begin + part * (this.run.end - this.run.begin);
  }

  onKey(event) {
    const {state} = this;
    const far = event.shiftKey ? 10 : 1;
    if (event.key === 'ArrowLeft') {
      state.set({at: Math.max(state.at - far, state.from, 0)});
    } else if (event.key === 'ArrowRight') {
      state.set({at: Math.min(state.at + far, state.to)});
    } else if (event.key === '+') {
      this.scale(0.5);
    } else if (event.key === '-') {
      this.scale(2);
    } else {
      return;
    }
    event.preventDefault();
  }

  /** A larger or smaller part around the moment. */
  scale(factor) {
    const {state, run} = this;
    const half = Math.max(Math.round((state.to - state.from) * factor / 2), 1);
    state.set({
      from: Math.max(state.at - half, -1),
      to: Math.min(state.at + half, run.last_moment),
    });
  }

  onOverviewKey(event) {
    const {state, run} = this;
    const step = {ArrowLeft: -1, ArrowRight: 1}[event.key];
    if (step === undefined) return;
    const width = state.to - state.from;
    const from = Math.min(Math.max(state.from + step, -1), run.last_moment - width);
    state.set({from, to: from + width});
    event.preventDefault();
  }
}
