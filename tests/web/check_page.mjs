// node check_page.mjs CHROMIUM PAGE < expectations
// Opens the page in light and in dark, wide and narrow, and on paper. Expectations: {canvases, says,
// numbers: what `algtrack report --json` printed, few: too few values for lines, least: coloured
// pixels of a canvas}.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { pathToFileURL } from 'node:url';
import { Browser } from './browser.mjs';

const [chromium, page] = process.argv.slice(2);
const url = pathToFileURL(page).href;
const { canvases, says = [], numbers, few = false, least = few ? 4 : 100 } =
  JSON.parse(readFileSync(0, 'utf8'));

// What follows runs in the page. The pixels are those of a copy: reading a canvas many times makes
// the browser warn.
const pixelsOf = `((canvas) => {
  const copy = document.createElement('canvas');
  [copy.width, copy.height] = [canvas.width, canvas.height];
  const context = copy.getContext('2d', { willReadFrequently: true });
  context.drawImage(canvas, 0, 0);
  return context.getImageData(0, 0, copy.width, copy.height).data;
})`;

/** How many pixels of every canvas have a colour. Axes, grids and texts are grey or nearly so. */
const countColours = `[...document.querySelectorAll('canvas')].map((canvas) => {
  const data = ${pixelsOf}(canvas);
  let coloured = 0;
  for (let i = 0; i < data.length; i += 4) {
    const [r, g, b, a] = data.subarray(i, i + 4);
    if (a > 128 && Math.max(r, g, b) - Math.min(r, g, b) > 70) ++coloured;
  }
  return coloured;
})`;

/** How many pixels of the paths have an object's colour. */
const countObject = (n) => `(() => {
  const hex = getComputedStyle(document.documentElement).getPropertyValue('--object-${n}').trim();
  const wanted = [1, 3, 5].map((at) => parseInt(hex.slice(at, at + 2), 16));
  return [...document.querySelectorAll('.view canvas')].map((canvas) => {
    const data = ${pixelsOf}(canvas);
    let found = 0;
    for (let i = 0; i < data.length; i += 4)
      if (data[i + 3] > 200 && wanted.every((value, k) => Math.abs(data[i + k] - value) < 12)) ++found;
    return found;
  });
})()`;

const background = `(() => {
  const [r, g, b] = getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number);
  return (r + g + b) / 3;
})()`;

const theme = 'document.documentElement.dataset.theme';

async function assertDrawn(browser, where) {
  const coloured = await browser.evaluate(countColours);
  assert.equal(coloured.length, canvases, `${where}: canvases`);
  coloured.forEach((count, i) =>
    assert.ok(count >= least, `${where}: canvas ${i} has ${count} coloured pixels`));
}

async function assertFits(browser, where) {
  const { content, window } = await browser.evaluate(
    '({ content: document.documentElement.scrollWidth, window: innerWidth })');
  assert.ok(content <= window, `${where}: ${content} px of content in ${window} px`);
}

async function checkTexts(browser) {
  const text = await browser.evaluate('document.body.innerText');
  for (const said of says) assert.ok(text.includes(said), `the page must say ${said}`);
  const rows = await browser.evaluate(
    '[...document.querySelectorAll("tbody tr")].map((row) => row.innerText.split("\\t"))');
  for (const { object, presence } of numbers.objects) {
    const [, seen, without] = rows.find((row) => row[0] === `Object ${object}`);
    assert.equal(without.replaceAll(',', ''), String(presence.packets - presence.seen));
    assert.ok(Math.abs(parseFloat(seen) - 100 * presence.seen_share) <= 0.011, seen);
  }
}

/** The cards of bodies show the numbers that the report printed. */
async function checkBodies(browser) {
  for (const [n, body] of numbers.bodies.entries()) {
    const card = await browser.evaluate(`(() => {
      const card = document.getElementById("body-${n}");
      return {
        name: card.querySelector("h3").innerText,
        figures: [...card.querySelectorAll(".figure")].map((figure) =>
          [figure.querySelector("span").innerText, parseFloat(figure.querySelector("b").innerText)]),
      };
    })()`);
    assert.equal(card.name, body.name);
    const shown = Object.fromEntries(card.figures);
    const near = (label, value) => assert.ok(Math.abs(shown[label] - value) <= 0.006 * value + 0.0006,
      `${label} of body ${n}: ${shown[label]}, not ${value}`);
    near('with a pose', (100 * body.poses) / body.packets);
    near('position error', body.error.position_mm.rms);
    near('orientation error', body.error.orientation_deg.rms);
    near('residual', body.residual_px.rms);
    near('markers visible', body.markers_visible.mean);
  }
}

async function checkObjectToggle(browser) {
  const before = await browser.evaluate(countObject(0));
  assert.ok(before.every((count) => count > 15), `object 0 in the paths: ${before}`);
  await browser.evaluate('document.querySelector(".toggle").click()');
  assert.deepEqual(await browser.evaluate(countObject(0)), [0, 0, 0]);
  await browser.evaluate('document.querySelector(".toggle").click()');
  assert.deepEqual(await browser.evaluate(countObject(0)), before);
}

/** The mouse over one chart shows the values of that moment in all charts; a drag zooms all. */
async function checkCharts(browser) {
  const { x, y, width } = await browser.evaluate(`(() => {
    const over = document.querySelector('.u-over');
    over.scrollIntoView({ block: 'center' });
    const { x, y, width } = over.getBoundingClientRect();
    return { x, y, width };
  })()`);
  const mouse = (type, dx, button = 'none') => browser.send('Input.dispatchMouseEvent', {
    type, x: x + dx, y: y + 30, button, buttons: button === 'left' ? 1 : 0, clickCount: 1,
  });
  const readouts = '[...document.querySelectorAll(".readout")].filter((r) => !r.closest("#calibration-over-time")).map((r) => r.textContent.split("   ").slice(0, 2).join())';

  await mouse('mouseMoved', width / 2);
  await browser.evaluate(settled);
  const times = await browser.evaluate(readouts);
  assert.ok(times.length > 1 && times.every((time) => time && time === times[0]), `${times}`);
  assert.match(times[0], /packets? [\d,–]+, calls? [\d,–]+/);

  const whole = await browser.evaluate(secondChart);
  await mouse('mouseMoved', width / 4);
  await mouse('mousePressed', width / 4, 'left');
  await mouse('mouseMoved', width / 2, 'left');
  await mouse('mouseReleased', width / 2, 'left');
  await browser.evaluate(settled);
  assert.notEqual(await browser.evaluate(secondChart), whole, 'a drag over one chart zooms the others');
  await assertDrawn(browser, 'zoomed');
}

const settled = 'new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))';
const secondChart = 'document.querySelectorAll(".u-wrap canvas")[1].toDataURL()';

async function press(browser, key) {
  await browser.send('Input.dispatchKeyEvent', { type: 'keyDown', key, text: key.length === 1 ? key : undefined });
  await browser.send('Input.dispatchKeyEvent', { type: 'keyUp', key });
  await browser.evaluate(settled);
}

/** Keys zoom all charts, as the mouse does; a worst moment leads into them. */
async function checkKeysAndLinks(browser) {
  await browser.evaluate('[...document.querySelectorAll("button")].find((b) => b.textContent === "Show everything").click()');
  await browser.evaluate(settled);
  const whole = await browser.evaluate(secondChart);
  await browser.evaluate('document.querySelector(".chart[tabindex]").focus()');
  await press(browser, '+');
  const zoomed = await browser.evaluate(secondChart);
  assert.notEqual(zoomed, whole, 'plus zooms');
  await press(browser, 'ArrowRight');
  assert.notEqual(await browser.evaluate(secondChart), zoomed, 'an arrow key moves');
  await press(browser, '0');
  assert.equal(await browser.evaluate(secondChart), whole, '0 shows everything');

  const first = await browser.evaluate(
    'document.querySelector(".figures ~ section").querySelector("h2").textContent');
  assert.equal(first, 'Worst moments');
  // A gap may be as long as the recording, and a short recording is shown whole.
  const worst = numbers.worst.findIndex((moment) => moment.object != null && moment.kind !== 'gap');
  if (worst < 0 || numbers.recording.seconds < 2) return;
  await browser.evaluate(`document.querySelectorAll("#worst-moments .link")[${worst}].click()`);
  await browser.evaluate(settled);
  assert.notEqual(await browser.evaluate(secondChart), whole, 'a worst moment zooms');
  assert.equal(await browser.evaluate('document.activeElement.closest("article").id'),
    `object-${numbers.worst[worst].object}`);
  await press(browser, 'Home');
}

const rgbOf = (names) => `${JSON.stringify(names)}.map((name) => {
  const hex = getComputedStyle(document.documentElement).getPropertyValue(name).trim();
  return [1, 3, 5].map((at) => parseInt(hex.slice(at, at + 2), 16));
})`;

/** Raw, filtered and missing look like no object. */
async function checkColours(browser) {
  const objects = [...Array(6).keys()].map((n) => `--object-${n}`);
  const others = ['--raw', '--filtered', '--absent'];
  const colours = await browser.evaluate(rgbOf([...others, ...objects]));
  for (const [i, other] of others.entries())
    for (const [n, object] of objects.entries()) {
      const apart = colours[others.length + n].map((value, k) => Math.abs(value - colours[i][k]));
      assert.ok(Math.max(...apart) > 40, `${other} looks like ${object}`);
    }
}

/** As much of an object's row is dark as packets were without it: 4 % are no full stripe. */
async function checkPresence(browser) {
  const [absent, ...seen] = await browser.evaluate(
    rgbOf(['--absent', ...numbers.objects.map(({ object }) => `--object-${object}`)]));
  for (const [row, { object, presence }] of numbers.objects.entries()) {
    if (presence.packets < 2) continue; // one packet is one pixel
    const dark = await browser.evaluate(`(() => {
      const canvas = document.querySelector('canvas[aria-label^="When every object was seen"]');
      const scale = canvas.width / canvas.clientWidth;
      const data = ${pixelsOf}(canvas);
      const [seen, absent] = ${JSON.stringify([seen[row], absent])};
      const most = [0, 1, 2].reduce((a, b) =>
        Math.abs(absent[b] - seen[b]) > Math.abs(absent[a] - seen[a]) ? b : a);
      let sum = 0, count = 0;
      for (let y = (${row} * 30 + 4) * scale; y < (${row} * 30 + 24) * scale; ++y)
        for (let x = 64 * scale; x < canvas.width - 12 * scale; ++x, ++count)
          sum += (data[4 * (y * canvas.width + x) + most] - seen[most]) / (absent[most] - seen[most]);
      return sum / count;
    })()`);
    assert.ok(Math.abs(dark - (1 - presence.seen_share)) < 0.015,
      `object ${object}: ${dark} of its row is dark, it was seen in ${presence.seen_share}`);
  }
}

async function checkNames(browser) {
  const unnamed = await browser.evaluate(
    '[...document.querySelectorAll("canvas")].filter((c) => !c.closest("[aria-label]")).length');
  assert.equal(unnamed, 0, 'every picture has words for those who do not see it');
  const dead = await browser.evaluate(
    '[...document.querySelectorAll(".contents a")].filter((a) => !document.querySelector(a.getAttribute("href"))).length');
  assert.equal(dead, 0, 'every entry of the contents leads somewhere');
  assert.ok(await browser.evaluate('document.querySelectorAll(".contents a").length') > 10);
}

/** Nothing but the page's own script and style may run. The last check: it makes the page complain. */
async function checkPolicy(browser) {
  const policy = await browser.evaluate(
    'document.querySelector("meta[http-equiv=Content-Security-Policy]").content');
  assert.ok(!policy.includes('unsafe') && policy.includes("'sha256-"), policy);
  await browser.evaluate(`
    document.body.insertAdjacentHTML('beforeend', '<b id="styled" style="position: fixed">.</b>');
    const script = document.createElement('script');
    script.textContent = 'document.title = "taken"';
    document.body.append(script);`);
  assert.notEqual(await browser.evaluate('document.title'), 'taken');
  assert.equal(await browser.evaluate('getComputedStyle(document.getElementById("styled")).position'), 'static');
}

async function checkPaper(browser) {
  await browser.evaluate('dispatchEvent(new Event("beforeprint"))');
  assert.equal(await browser.evaluate(theme), 'light');
  const widths = await browser.evaluate(
    '[...document.querySelectorAll("canvas")].map((canvas) => canvas.clientWidth)');
  assert.ok(widths.every((width) => width <= 680), `${widths}`);
  await assertDrawn(browser, 'on paper');
  await browser.evaluate('dispatchEvent(new Event("afterprint"))');
  assert.equal(await browser.evaluate(theme), 'dark');
  const { data } = await browser.send('Page.printToPDF', { printBackground: true });
  const pdf = Buffer.from(data, 'base64').toString('latin1');
  assert.ok(pdf.startsWith('%PDF') && (pdf.match(/\/Type\s*\/Page\b/g) ?? []).length >= 3);
}

const browser = await Browser.start(chromium);
const problems = [];
browser.on(({ method, params }) => {
  if (method === 'Runtime.exceptionThrown')
    problems.push(params.exceptionDetails.exception?.description ?? params.exceptionDetails.text);
  if (method === 'Runtime.consoleAPICalled') problems.push(JSON.stringify(params.args));
  if (method === 'Log.entryAdded') problems.push(params.entry.text);
  if (method === 'Page.javascriptDialogOpening') problems.push(`dialog: ${params.message}`);
  if (method === 'Network.requestWillBeSent' && params.request.url !== url &&
      !params.request.url.startsWith('data:'))
    problems.push(`fetches ${params.request.url}`);
});

try {
  await browser.show({ dark: false });
  await browser.open(url);
  assert.equal(await browser.evaluate(theme), 'light');
  assert.ok((await browser.evaluate(background)) > 200);
  assert.ok((await browser.evaluate('document.title')).startsWith(numbers.recording.file));
  await assertDrawn(browser, 'light');
  await assertFits(browser, 'wide');
  await checkTexts(browser);
  await checkBodies(browser);
  await checkNames(browser);
  await checkColours(browser);
  await checkPresence(browser);
  if (!few) {
    await checkObjectToggle(browser);
    await checkCharts(browser);
    await checkKeysAndLinks(browser);
  }
  await browser.evaluate('document.querySelector(".theme").click()');
  assert.equal(await browser.evaluate(theme), 'dark');
  await checkColours(browser);
  await assertDrawn(browser, 'switched to dark');

  await browser.show({ dark: true, width: 400, height: 800, scale: 2 });
  await browser.open(url);
  assert.equal(await browser.evaluate(theme), 'dark');
  assert.ok((await browser.evaluate(background)) < 50);
  await assertDrawn(browser, 'dark and narrow');
  await assertFits(browser, 'narrow');
  await checkPaper(browser);
  assert.deepEqual(problems, []);
  await checkPolicy(browser);
} finally {
  await browser.close();
}
