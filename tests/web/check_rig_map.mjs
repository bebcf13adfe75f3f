// node check_rig_map.mjs CHROMIUM PAGE
// Opens the map of a camera pair in light and in dark, wide and narrow.
import assert from 'node:assert/strict';
import { pathToFileURL } from 'node:url';
import { Browser } from './browser.mjs';

const [chromium, page] = process.argv.slice(2);

/** Coloured pixels of a canvas, and how many of them are on its border. */
const coloursOf = (selector) => `(() => {
  const canvas = document.querySelector('${selector}');
  const copy = document.createElement('canvas');
  const { width, height } = Object.assign(copy, { width: canvas.width, height: canvas.height });
  const context = copy.getContext('2d', { willReadFrequently: true });
  context.drawImage(canvas, 0, 0);
  const { data } = context.getImageData(0, 0, width, height);
  let all = 0, border = 0;
  for (let y = 0; y < height; ++y)
    for (let x = 0; x < width; ++x) {
      const [r, g, b, a] = data.subarray(4 * (y * width + x), 4 * (y * width + x) + 4);
      if (a < 128 || Math.max(r, g, b) - Math.min(r, g, b) < 40) continue;
      ++all;
      if (x === 0 || y === 0 || x === width - 1 || y === height - 1) ++border;
    }
  return { all, border };
})()`;

const browser = await Browser.start(chromium);
const problems = [];
browser.on(({ method, params }) => {
  if (['Runtime.exceptionThrown', 'Runtime.consoleAPICalled', 'Log.entryAdded'].includes(method))
    problems.push(JSON.stringify(params));
});
try {
  for (const dark of [false, true])
    for (const width of [1280, 390]) {
      const where = `${dark ? 'dark' : 'light'}, ${width} px`;
      await browser.show({ dark, width, height: 900 });
      await browser.open('about:blank');
      await browser.open(pathToFileURL(page).href);
      const { content, shown, paper, depth } = await browser.evaluate(`({
        content: document.documentElement.scrollWidth, shown: innerWidth,
        paper: getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number),
        depth: document.querySelector('output').getClientRects().length })`);
      assert.ok(content <= shown, `${where}: ${content} px of content`);
      assert.equal(paper[0] < 128, dark, where);
      assert.equal(depth, 1, `${where}: the depth is on one line`);
      assert.ok((await browser.evaluate(coloursOf('figure canvas'))).all > 1000, `${where}: the slice`);
      // However it is turned, all of the room is in the picture.
      for (const turned of ['', 'ArrowRight', 'ArrowDown'])
        for (let times = 0; times < (turned ? 8 : 1); ++times) {
          if (turned)
            await browser.evaluate(`document.querySelector('canvas.turn').dispatchEvent(new KeyboardEvent('keydown', { key: '${turned}' }))`);
          const { all, border } = await browser.evaluate(coloursOf('canvas.turn'));
          assert.ok(all > 500 && border === 0, `${where}, ${turned} ${times}: ${all}, ${border} on the border`);
        }
    }
  assert.deepEqual(problems, []);
} finally {
  await browser.close();
}
