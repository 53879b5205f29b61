// Loads exported files into viewers that are pages, and prints as JSON what these show.
// usage: node open_pages.mjs (DHAT_FILE SPEEDSCOPE_FILE)...
import fs from 'node:fs';
import path from 'node:path';
import puppeteer from 'puppeteer-core';

const DHAT = '/usr/libexec/valgrind/dh_view.html';
const SPEEDSCOPE = path.resolve('node_modules/speedscope/dist/release/index.html');

async function load(page, viewer, file) {
  await page.goto('file://' + viewer);
  const input = await page.waitForSelector('input[type=file]', {hidden: false, visible: false});
  await input.uploadFile(fs.realpathSync(file));
}

/** The text of the tree's root, and the points at the ends of its branches with all their calls. */
async function dhat(page, file) {
  await load(page, DHAT, file);
  await page.waitForFunction(() => /PP 1\/|rror/.test(document.body.innerText));
  return page.evaluate(() => {
    const points = [];
    const visit = (node, above) => {
      const calls = above.concat(node._frames.map((frame) => gData.ftbl[frame]));
      if (node._kids) {
        node._kids.forEach((kid) => visit(kid, calls));
        return;
      }
      points.push({
        calls,
        made_bytes: node._totalBytes,
        made_blocks: node._totalBlocks,
        lives: node._totalLifetimes,
        peak_bytes: node._atTGmaxBytes,
        peak_blocks: node._atTGmaxBlocks,
        bytes: node._atTEndBytes,
        blocks: node._atTEndBlocks,
      });
    };
    visit(gRoot, []);
    return {shown: document.body.innerText, points};
  });
}

/** What speedscope saves of all that it has loaded, which would go to the user's downloads. */
async function saved(page) {
  await page.evaluate(() => {
    const create = URL.createObjectURL;
    URL.createObjectURL = (blob) => {
      window.savedBlob = blob;
      return create(blob);
    };
    document.addEventListener('click', (event) => {
      if (event.target.download) event.preventDefault();
    }, true);
  });
  await page.keyboard.down('Control');
  await page.keyboard.press('s');
  await page.keyboard.up('Control');
  await page.waitForFunction(() => window.savedBlob);
  return JSON.parse(await page.evaluate(() => window.savedBlob.text()));
}

/** The table of calls of each profile in the file, and the whole as the page has it. */
async function speedscope(page, file, count) {
  await load(page, SPEEDSCOPE, file);
  const tables = [];
  for (let number = 1; number <= count; ++number) {
    await page.waitForFunction(
      (place) => document.body.innerText.includes(place), {}, `(${number}/${count})`);
    await page.keyboard.press('3');
    await page.waitForFunction(() => document.body.innerText.includes('Symbol Name'));
    tables.push(await page.evaluate(() => document.body.innerText));
    await page.keyboard.press('n');
  }
  return {tables, saved: await saved(page)};
}

const files = process.argv.slice(2);
const browser = await puppeteer.launch({
  executablePath: '/usr/bin/chromium',
  args: ['--no-sandbox', '--allow-file-access-from-files', '--enable-unsafe-swiftshader'],
});
try {
  const page = await browser.newPage();
  // A table shows the rows that there is room for.
  await page.setViewport({width: 1600, height: 6000});
  page.on('pageerror', (error) => {
    throw error;
  });
  const shown = [];
  while (files.length > 0) {
    shown.push({
      dhat: await dhat(page, files.shift()),
      speedscope: await speedscope(page, files.shift(), 3),
    });
  }
  console.log(JSON.stringify(shown));
} finally {
  await browser.close();
}
