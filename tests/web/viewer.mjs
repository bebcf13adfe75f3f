// What the viewer's checks share: a page in the browser, and everything that it should not do.
import assert from 'node:assert/strict';
import { Browser } from './browser.mjs';

// The software renderer's own remark about being photographed.
const kOfTheDriver = /GL Driver Message .*GPU stall due to ReadPixels/;

export const later = (ms) => new Promise((done) => setTimeout(done, ms));

export class Viewer {
  problems = [];

  static async start(chromium, address, view = {}) {
    const viewer = new Viewer();
    viewer.address = address;
    viewer.browser = await Browser.start(chromium);
    const own = new URL(address);
    viewer.browser.on(({ method, params }) => {
      const say = (text) => { if (!kOfTheDriver.test(text)) viewer.problems.push(text); };
      if (method === 'Runtime.exceptionThrown')
        say(params.exceptionDetails.exception?.description ?? params.exceptionDetails.text);
      if (method === 'Runtime.consoleAPICalled') say(JSON.stringify(params.args));
      if (method === 'Log.entryAdded') say(params.entry.text);
      if (method === 'Page.javascriptDialogOpening') say(`dialog: ${params.message}`);
      const url = method === 'Network.requestWillBeSent' ? params.request.url
        : method === 'Network.webSocketCreated' ? params.url : null;
      if (url && !/^(data|blob):/.test(url) && new URL(url).host !== own.host) say(`fetches ${url}`);
    });
    await viewer.browser.show(view);
    await viewer.browser.open(address);
    return viewer;
  }

  evaluate(expression) {
    return this.browser.evaluate(expression);
  }

  /** Waits until an expression is true in the page. */
  async until(expression, what = expression, patience = 30000) {
    const end = Date.now() + patience;
    while (!(await this.evaluate(`Boolean(${expression})`))) {
      if (Date.now() > end) {
        const text = await this.evaluate('document.body.innerText.slice(0, 600)');
        assert.fail(`${what}: not within ${patience} ms; the page says: ${text}`);
      }
      await later(40);
    }
  }

  text(selector) {
    return this.evaluate(`document.querySelector(${JSON.stringify(selector)})?.textContent ?? ''`);
  }

  /** {t, packet, call} that the page shows. */
  async moment() {
    const text = await this.text('.moment');
    const found = /^([\d.]+) s · packet ([\d,]+) · call ([\d,]+)$/.exec(text);
    assert.ok(found, `a moment: ${text}`);
    const whole = (n) => Number(n.replaceAll(',', ''));
    return { t: Number(found[1]), packet: whole(found[2]), call: whole(found[3]) };
  }

  /** Until a moment with such a packet is shown. */
  async untilPacket(test, what) {
    await this.until(`(() => { const m = /packet ([\\d,]+)/.exec(document.querySelector('.moment').textContent);
      if (!m) return false; const packet = Number(m[1].replaceAll(',', '')); return ${test}; })()`, what ?? test);
    return this.moment();
  }

  async press(key, modifiers = 0) {
    const text = key.length === 1 ? key : undefined;
    await this.browser.send('Input.dispatchKeyEvent', { type: 'keyDown', key, text, modifiers });
    await this.browser.send('Input.dispatchKeyEvent', { type: 'keyUp', key, modifiers });
    await this.settle();
  }

  /** @param events  [[type, x, y, pressed]] in the page's pixels */
  async mouse(...events) {
    for (const [type, x, y, pressed, modifiers = 0] of events)
      await this.browser.send('Input.dispatchMouseEvent', {
        type, x, y, modifiers, button: type === 'mouseMoved' ? 'none' : 'left', buttons: pressed ? 1 : 0, clickCount: 1,
      });
    await this.settle();
  }

  settle() {
    return this.evaluate('new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))');
  }

  box(selector) {
    return this.evaluate(`(() => {
      const node = document.querySelector(${JSON.stringify(selector)});
      node.scrollIntoView({ block: 'nearest' });
      const { x, y, width, height } = node.getBoundingClientRect();
      return { x, y, width, height };
    })()`);
  }

  /** A photo of the page, PNG. */
  async photo() {
    const { data } = await this.browser.send('Page.captureScreenshot', { format: 'png' });
    return Buffer.from(data, 'base64');
  }

  /** The colours of a photo around a place, by the browser's own decoder: [[r, g, b]]. */
  async coloursAt(x, y, radius = 0) {
    const png = (await this.photo()).toString('base64');
    return this.evaluate(`(async () => {
      const bytes = Uint8Array.from(atob(${JSON.stringify(png)}), (c) => c.charCodeAt(0));
      const picture = await createImageBitmap(new Blob([bytes], { type: 'image/png' }));
      const canvas = new OffscreenCanvas(picture.width, picture.height);
      const context = canvas.getContext('2d');
      context.drawImage(picture, 0, 0);
      const scale = picture.width / innerWidth;
      const size = ${2 * radius + 1};
      const { data } = context.getImageData(Math.round(${x} * scale) - ${radius}, Math.round(${y} * scale) - ${radius}, size, size);
      return Array.from({ length: size * size }, (_, i) => [...data.subarray(4 * i, 4 * i + 3)]);
    })()`);
  }

  /** Of a CSS variable: [r, g, b]. */
  async colour(name) {
    const hex = await this.evaluate(`getComputedStyle(document.documentElement).getPropertyValue('${name}').trim()`);
    return [1, 3, 5].map((at) => parseInt(hex.slice(at, at + 2), 16));
  }

  async assertFits(what) {
    const { content, window } = await this.evaluate(
      '({ content: document.documentElement.scrollWidth, window: innerWidth })');
    assert.ok(content <= window, `${what}: ${content} px of content in ${window} px`);
  }

  async close() {
    await this.browser.close();
  }
}

export const isNear = (a, b, tolerance = 6) => a.every((value, i) => Math.abs(value - b[i]) <= tolerance);
