// Elements of the page.

const SVG = 'http://www.w3.org/2000/svg';
const IN_SVG = new Set(['svg', 'g', 'rect', 'text', 'title', 'path', 'line']);

/** An element with attributes; functions are what it does at an event. */
export function element(name, attributes = {}, ...children) {
  const made = IN_SVG.has(name) ? document.createElementNS(SVG, name)
                                : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (typeof value === 'function') {
      made.addEventListener(key, value);
    } else if (value !== undefined && value !== false) {
      made.setAttribute(key, value === true ? '' : value);
    }
  }
  made.append(...children);
  return made;
}

/** A table for those who read figures rather than plots. */
export function tableOf(caption, titles, rows) {
  return element('table', {},
      element('caption', {}, caption),
      element('thead', {},
          element('tr', {}, ...titles.map((title) => element('th', {scope: 'col'}, title)))),
      element('tbody', {}, ...rows.map((row) => element('tr', {},
          element('th', {scope: 'row'}, row[0]),
          ...row.slice(1).map((cell) => element('td', {}, cell))))));
}

/** Has a table made when it is opened, and again when it is open and things change. */
export function onDemand(details, make) {
  const show = () => {
    details.querySelector('table')?.remove();
    if (details.open) details.append(make());
  };
  details.addEventListener('toggle', show);
  return show;
}
