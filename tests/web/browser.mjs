// Headless Chromium over the DevTools protocol, through a pair of pipes: no package is needed.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

export class Browser {
  #folder = mkdtempSync(join(tmpdir(), 'algtrack-browser-'));
  #waiting = new Map();
  #listeners = [];
  #lastId = 0;
  #session;
  #process;

  /** @param program  chromium */
  static async start(program) {
    const browser = new Browser();
    browser.#process = spawn(program, [
      '--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage',
      '--no-first-run', '--enable-unsafe-swiftshader', '--hide-scrollbars', '--remote-debugging-pipe',
      `--user-data-dir=${browser.#folder}`, 'about:blank',
    ], { stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'] });
    browser.#process.on('exit', () => browser.#fail(new Error(`${program} ended`)));
    browser.#process.on('error', (error) => browser.#fail(error));
    let rest = '';
    browser.#process.stdio[4].setEncoding('utf8').on('data', (text) => {
      const messages = (rest + text).split('\0');
      rest = messages.pop();
      messages.forEach((message) => browser.#receive(JSON.parse(message)));
    });
    const { targetInfos } = await browser.send('Target.getTargets');
    const { targetId } = targetInfos.find((target) => target.type === 'page');
    const { sessionId } = await browser.send('Target.attachToTarget', { targetId, flatten: true });
    browser.#session = sessionId;
    for (const domain of ['Page', 'Runtime', 'Log', 'Network']) await browser.send(`${domain}.enable`);
    return browser;
  }

  send(method, params = {}) {
    const id = ++this.#lastId;
    const message = JSON.stringify({ id, method, params, sessionId: this.#session });
    return new Promise((done, failed) => {
      this.#waiting.set(id, { done, failed });
      this.#process.stdio[3].write(`${message}\0`);
    });
  }

  on(listener) {
    this.#listeners.push(listener);
  }

  /** Opens a page and waits until it is loaded. */
  async open(url) {
    const loaded = new Promise((done) => this.on(({ method }) => {
      if (method === 'Page.loadEventFired') done();
    }));
    await this.send('Page.navigate', { url });
    await loaded;
  }

  /** The value of an expression in the page; what it throws is thrown here. */
  async evaluate(expression) {
    const { result, exceptionDetails } = await this.send('Runtime.evaluate', {
      expression, returnByValue: true, awaitPromise: true,
    });
    if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? 'exception');
    return result.value;
  }

  /** @param options  {width, height, scale, dark} */
  async show({ width = 1280, height = 900, scale = 1, dark = false }) {
    await this.send('Emulation.setDeviceMetricsOverride',
      { width, height, deviceScaleFactor: scale, mobile: false });
    await this.send('Emulation.setEmulatedMedia',
      { features: [{ name: 'prefers-color-scheme', value: dark ? 'dark' : 'light' }] });
  }

  async close() {
    const ended = new Promise((done) => this.#process.on('exit', done));
    this.send('Browser.close').catch(() => {});
    await ended;
    rmSync(this.#folder, { recursive: true, force: true, maxRetries: 5 });
  }

  #receive(message) {
    const waiting = this.#waiting.get(message.id);
    if (!waiting) {
      this.#listeners.forEach((listener) => listener(message));
      return;
    }
    this.#waiting.delete(message.id);
    if (message.error) waiting.failed(new Error(message.error.message));
    else waiting.done(message.result);
  }

  #fail(error) {
    for (const { failed } of this.#waiting.values()) failed(error);
    this.#waiting.clear();
  }
}
