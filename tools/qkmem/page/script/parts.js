// What the moment that one looks at is made of: a treemap, and an icicle of calls.
import {chosenRows, coloursOf} from './groups.js';
import {element, onDemand, tableOf} from './elements.js';
import {changeText, countText, shareText, sizeText} from './format.js';

const TREEMAP_HEIGHT = 320;
const ICICLE_ROW = 20;
const ICICLE_DEPTH = 24;
const LETTER = 6.6;  // about as wide as one is, in pixels

/** A tree of rows below the names that lead to each. */
class Tree {
  constructor() {
    this.root = {key: '', name: 'all', children: new Map(), value: 0, change: 0};
  }

  add(path, amount) {
    let node = this.root;
    for (const step of [undefined, ...path]) {
      if (step !== undefined) {
        if (!node.children.has(step.id)) {
          node.children.set(step.id, {...step, children: new Map(), value: 0, change: 0});
        }
        node = node.children.get(step.id);
      }
      node.value += Math.abs(amount);
      node.change += amount;
    }
    // What it has beside its children, which are other rows with the same path.
    node.own = (node.own ?? 0) + Math.abs(amount);
  }

  hierarchy() {
    return d3.hierarchy(this.root, (node) => [...node.children.values()])
        .sum((node) => node.own ?? 0)
        .sort((one, other) => other.value - one.value);
  }
}

/** What shows the parts of a moment. */
export class Parts {
  constructor(data, names, state) {
    this.data = data;
    this.names = names;
    this.state = state;
    this.treemap = document.getElementById('treemap');
    this.icicle = document.getElementById('icicle');
    this.showTreemapTable = onDemand(document.getElementById('treemap-table'),
        () => this.table('Bytes by tag, handle and line', this.treemapTree));
    this.showIcicleTable = onDemand(document.getElementById('icicle-table'),
        () => this.table('Bytes by calls', this.icicleTree));
    new ResizeObserver(() => {
      if (this.treemap.clientWidth !== this.width) this.draw();
    }).observe(this.treemap);
  }

  /** Rows with what they hold, or by how much that has changed. */
  amounts() {
    const {state, names, data} = this;
    if (!state.isChange) {
      const run = state.shown;
      return chosenRows(run, names, state)
          .map((number) => [run.rows[number], run.live(number, state.at)[0]])
          .filter(([, bytes]) => bytes > 0);
    }
    const amounts = [];
    data.runs.forEach((run, which) => {
      for (const number of chosenRows(run, names, state)) {
        const [bytes] = run.live(number, run.last_moment);
        if (bytes > 0) amounts.push([run.rows[number], which === 0 ? -bytes : bytes]);
      }
    });
    return amounts;
  }

  draw() {
    const {state} = this;
    this.amountsNow = this.amounts();
    const hasStacks = this.state.shown.rows.some((row) => (row.stack ?? []).length !== 0);
    document.getElementById('calls').hidden = state.isChange;
    document.getElementById('icicle-title').textContent = hasStacks ? 'Calls' : 'Files and lines';
    // Asked for before anything is drawn, or else all would be laid out in between.
    this.width = this.treemap.clientWidth;
    this.icicleWidth = this.icicle.clientWidth;
    this.drawTreemap();
    if (!state.isChange) this.drawIcicle(hasStacks);
    this.showTreemapTable();
    this.showIcicleTable();
  }

  treemapPath(row) {
    const {names} = this;
    const ways = this.state.hasTags() ? ['tag', 'handle', 'line'] : ['handle', 'line'];
    return ways.map((by) => ({
      id: names.key(row, by),
      key: names.key(row, by),
      name: by === 'line' ? names.line(row) : names.group(row, by),
      by,
    }));
  }

  drawTreemap() {
    const {state} = this;
    const tree = new Tree();
    if (state.isChange) {
      this.addChanges(tree);
    } else {
      for (const [row, bytes] of this.amountsNow) tree.add(this.treemapPath(row), bytes);
    }
    this.treemapTree = tree.root;
    const {width} = this;
    const root = d3.treemap().size([width, TREEMAP_HEIGHT]).paddingInner(1).paddingTop(
        (node) => node.depth === 0 ? 0 : node.children ? 17 : 0)(tree.hierarchy());
    const colours = coloursOf(state.shown, this.names, state.by);
    const boxes = root.descendants().filter((node) => node.depth > 0)
        .map((node) => this.box(node, this.colourClass(node, colours)));
    this.fill(this.treemap, width, TREEMAP_HEIGHT, boxes, tree.root);
  }

  /** Of two runs: by how much each line has changed. */
  addChanges(tree) {
    const changes = new Map();
    for (const [row, bytes] of this.amountsNow) {
      const key = this.names.key(row, 'line');
      const change = changes.get(key) ?? {row, bytes: 0};
      change.bytes += bytes;
      changes.set(key, change);
    }
    for (const {row, bytes} of changes.values()) {
      if (bytes !== 0) tree.add(this.treemapPath(row), bytes);
    }
  }

  /** That of the group in which a part is; one that holds several has none. */
  colourClass(node, colours) {
    if (this.state.isChange) return node.data.change < 0 ? 'less' : 'more';
    const own = node.ancestors().find((above) => above.data.by === this.state.by);
    if (!own) return 'several';
    return `group-${colours.get(own.data.key) ?? -1}`;
  }

  drawIcicle(hasStacks) {
    const tree = new Tree();
    for (const [row, bytes] of this.amountsNow) {
      tree.add(hasStacks ? this.stackPath(row) : this.placePath(row), bytes);
    }
    this.icicleTree = tree.root;
    const hierarchy = tree.hierarchy();
    const depth = Math.min(hierarchy.height + 1, ICICLE_DEPTH);
    const width = this.icicleWidth;
    const all = (hierarchy.height + 1) * ICICLE_ROW;
    const root = d3.partition().size([width, all])(hierarchy);
    const boxes = root.descendants()
        .filter((node) => node.depth < depth && node.x1 - node.x0 >= 1)
        .map((node) => this.box(node, `depth-${node.depth % 4}`));
    this.fill(this.icicle, width, depth * ICICLE_ROW, boxes, tree.root);
  }

  /** From the program's begin to the line that allocates. */
  stackPath(row) {
    const calls = (row.stack ?? []).map((number) => ({
      id: `frame:${number}`,
      key: `frame:${number}`,
      name: this.data.frames[number].name,
    }));
    return [...calls.reverse(), this.lineStep(row)];
  }

  placePath(row) {
    const line = this.lineStep(row);
    if (row.line === undefined) return [line];
    const file = line.name.replace(/:\d+.*$/, '');
    return [{id: file, key: '', name: file}, line];
  }

  lineStep(row) {
    const key = this.names.key(row, 'line');
    return {id: key, key, name: `${this.names.line(row)} · ${this.names.handle(row)}`};
  }

  box(node, colour) {
    const width = node.x1 - node.x0;
    const height = node.y1 - node.y0;
    const {state} = this;
    const {key, name} = node.data;
    const text = this.amountText(node);
    const box = element('g', {
      class: `box ${colour}`,
      transform: `translate(${node.x0},${node.y0})`,
      click: () => state.set({only: state.only === key ? '' : key}),
    }, element('title', {}, `${name}\n${text}`),
    element('rect', {width: Math.max(width - 0.5, 0.5), height: Math.max(height - 0.5, 0.5)}));
    if (width > 30 && height > 12) {
      const letters = Math.floor((width - 8) / LETTER);
      const label = name.length > letters ? `${name.slice(0, Math.max(letters - 1, 1))}…` : name;
      box.append(element('text', {x: 4, y: 13}, label));
      if (!node.children && height > 32 && width > 60) {
        box.append(element('text', {x: 4, y: 28, class: 'figure'}, sizeText(node.data.value)));
      }
    }
    return box;
  }

  amountText(node) {
    if (this.state.isChange) return changeText(node.data.change, sizeText);
    const whole = node.ancestors().at(-1).value;
    return `${sizeText(node.value)}, ${shareText(node.value, whole)}`;
  }

  fill(place, width, height, boxes, root) {
    place.replaceChildren(boxes.length === 0 || root.value === 0
        ? element('p', {class: 'quiet'}, 'Nothing is live.')
        : element('svg', {width, height, viewBox: `0 0 ${width} ${height}`, 'aria-hidden': 'true'},
            ...boxes));
    const most = [...root.children.values()].sort((one, other) => other.value - one.value);
    place.setAttribute('aria-label', `${sizeText(root.value)} in ${countText(most.length)} parts` +
        (most.length === 0 ? '' : `; ${most[0].name} has ${shareText(most[0].value, root.value)}`) +
        '. The table below has the figures.');
  }

  table(caption, root) {
    const rows = [];
    const visit = (node, depth) => {
      if (depth > 0) {
        rows.push([' '.repeat(2 * (depth - 1)) + node.name, sizeText(node.value),
                   shareText(node.value, root.value)]);
      }
      const children = [...node.children.values()].sort((one, other) => other.value - one.value);
      for (const child of children) visit(child, depth + 1);
    };
    visit(root, 0);
    return tableOf(caption, ['part', 'bytes', 'share'], rows);
  }
}
