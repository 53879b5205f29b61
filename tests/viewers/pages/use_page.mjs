// Uses a page as people do, and prints as JSON what it shows.
// usage: node use_page.mjs PAGE CHANGE_PAGE PICTURES
//   PAGE         of one run with stacks; beside it large.html, of a long run without
//   CHANGE_PAGE  of two
//   PICTURES     the folder for pictures of them
import fs from 'node:fs';
import path from 'node:path';
import puppeteer from 'puppeteer-core';

const [one, two, pictures] = process.argv.slice(2).map((name) => path.resolve(name));
const axe = fs.readFileSync('node_modules/axe-core/axe.min.js', 'utf8');

const browser = await puppeteer.launch({
  executablePath: '/usr/bin/chromium',
  args: ['--no-sandbox', '--enable-unsafe-swiftshader'],
});
const troubles = [];

/** A page that has drawn itself; what it asks for and complains about goes to the troubles. */
async function opened(file, address = '', width = 1400) {
  const page = await browser.newPage();
  await page.setViewport({width, height: 1400});
  page.on('pageerror', (error) => troubles.push(error.message));
  page.on('console', (message) => troubles.push(message.text()));
  page.on('request', (request) => {
    if (!request.url().startsWith(`file://${file}`)) troubles.push(request.url());
  });
  await page.evaluateOnNewDocument(() => {
    new MutationObserver((_, observer) => {
      if (!document.documentElement.classList.contains('drawn')) return;
      window.drawnAfter = performance.now();
      observer.disconnect();
    }).observe(document, {subtree: true, attributes: true});
  });
  await page.goto(`file://${file}${address}`);
  await page.waitForSelector('html.drawn');
  return page;
}

/** The table of lines, with exact figures where it shows rounded ones. */
function table(page) {
  return page.evaluate(() => {
    const cells = (row) => [...row.children].map((cell) => cell.title.endsWith(' B')
        ? cell.title.replace(' B', '') : cell.innerText.replace(/^[▸▾] /, ''));
    const all = document.getElementById('table');
    return {
      titles: cells(all.tHead.rows[0]).map((title) => title.replace(/ [↓↑]$/, '')),
      rows: [...all.tBodies[0].rows].filter((row) => !row.classList.contains('stacks')).map(cells),
      sums: cells(all.tFoot.rows[0]),
    };
  });
}

function address(page) {
  return page.evaluate(() => location.hash);
}

/** What one looks at, all in words. */
async function seen(page) {
  await page.evaluate(() => new Promise((resolve) => {
    requestAnimationFrame(() => setTimeout(() => setTimeout(resolve)));
  }));
  return {
    address: await address(page),
    moment: await page.$eval('#moment', (place) => place.textContent),
    plot: await page.$eval('#plot', (place) => place.getAttribute('aria-label')),
    legend: await page.$$eval('#legend button', (all) => all.map((one) => one.innerText)),
    treemap: await page.$eval('#treemap', (place) => place.getAttribute('aria-label')),
    boxes: await page.$$eval('#treemap title', (all) => all.map((one) => one.textContent)),
    calls: await page.$$eval('#icicle title', (all) => all.map((one) => one.textContent)),
    table: await table(page),
    left: await page.$eval('#left-sum', (place) => place.textContent),
  };
}

/** Drags over a part of an element, from and to shares of its width. */
async function drag(page, selector, from, to) {
  const {x, y, width, height} = await (await page.$(selector)).boundingBox();
  await page.mouse.move(x + from * width, y + height / 2);
  await page.mouse.down();
  await page.mouse.move(x + (from + to) / 2 * width, y + height / 2);
  await page.mouse.move(x + to * width, y + height / 2);
  await page.mouse.up();
}

async function picture(page, name, scheme = 'light') {
  await page.emulateMediaFeatures([{name: 'prefers-color-scheme', value: scheme}]);
  await page.evaluate(() => new Promise(requestAnimationFrame));
  await page.screenshot({path: path.join(pictures, `${name}-${scheme}.png`)});
}

async function complaints(page) {
  await page.evaluate(axe);
  return page.evaluate(async () => (await axe.run()).violations.map((found) => found.id));
}

async function lookAround(page) {
  const shown = {drawnAfter: await page.evaluate(() => window.drawnAfter)};
  shown.first = await seen(page);
  await picture(page, 'one');
  await picture(page, 'one', 'dark');
  shown.complaints = await complaints(page);
  await page.click('#end');
  shown.end = await seen(page);
  await drag(page, '#plot .u-over', 0.25, 0.75);
  shown.part = await seen(page);
  await picture(page, 'part');
  await drag(page, '#overview', 0.5, 0.9);
  shown.brushed = await seen(page);
  await page.keyboard.press('0');
  await page.keyboard.press('e');
  shown.whole = await seen(page);
  await page.focus('#plot');
  await page.keyboard.press('p');
  await page.keyboard.press('ArrowLeft');
  shown.before_peak = await seen(page);
  await page.keyboard.press('p');
  await page.click('#legend button');
  shown.only = await seen(page);
  await page.keyboard.press('Escape');
  await page.keyboard.press('/');
  await page.keyboard.type('make_scratch');
  shown.found = await seen(page);
  await page.keyboard.press('Escape');
  await page.click('[data-sort=made]');
  shown.sorted = await table(page);
  await page.click('[data-sort=line]');
  shown.sorted_by_name = await table(page);
  await page.click('.opener');
  shown.stack = await page.$eval('.stacks', (row) => row.innerText);
  await page.click('#plot-table summary');
  await page.waitForSelector('#plot-table table');
  shown.plot_table = await page.$eval('#plot-table table', (place) => place.innerText);
  return shown;
}

async function withoutScript(file) {
  const page = await browser.newPage();
  await page.setJavaScriptEnabled(false);
  await page.goto(`file://${file}`);
  await page.screenshot({path: path.join(pictures, 'plain.png')});
  // Scripts of the page are off; puppeteer's own are not.
  return (await page.$eval('body', (body) => body.innerText));
}

try {
  const page = await opened(one);
  const shown = await lookAround(page);
  await page.pdf({path: path.join(pictures, 'one.pdf'), format: 'A4'});
  const link = shown.part.address;
  shown.linked = await seen(await opened(one, link));
  const large = await opened(path.join(path.dirname(one), 'large.html'));
  shown.large = {drawnAfter: await large.evaluate(() => window.drawnAfter),
                 rows: (await table(large)).rows.length};
  await large.click('#more');
  shown.large.all = await table(large);
  const narrow = await opened(one, '', 480);
  await picture(narrow, 'narrow');
  shown.is_too_wide = await narrow.evaluate(
      () => document.documentElement.scrollWidth > document.documentElement.clientWidth);
  shown.plain = await withoutScript(one);
  const change = await opened(two);
  shown.change = {table: await table(change), complaints: await complaints(change)};
  await picture(change, 'change');
  await change.select('#runs', '0');
  shown.change.before = await table(change);
  console.log(JSON.stringify({...shown, troubles}));
} finally {
  await browser.close();
}
