// The server: questions and answers over a WebSocket, and news from the live edge.
const kFirstPause = 300; // ms before a lost connection is tried again, doubled up to
const kLongestPause = 4000;

export class Source extends EventTarget {
  #waiting = new Map();
  #lastId = 0;
  #pause = kFirstPause;
  #live = null;

  constructor() {
    super();
    this.connected = false;
    this.#open();
  }

  /** The answer to a question; rejects with what the server refused, or when it went away. */
  ask(op, values = {}) {
    if (!this.connected) return Promise.reject(new Error('not connected'));
    const id = ++this.#lastId;
    return new Promise((done, failed) => {
      this.#waiting.set(id, { done, failed });
      this.socket.send(JSON.stringify({ id, op, ...values }));
    });
  }

  /** News of a file's frames from number `from` on; null = none. */
  follow(live) {
    this.#live = live;
    if (this.connected)
      this.socket.send(JSON.stringify({ op: 'live', ...(live ?? { file: -1 }) }));
  }

  /** The address of a download. */
  partOf(kind, file, from, to) {
    const token = encodeURIComponent(new URLSearchParams(location.search).get('token') ?? '');
    return `/part.${kind}?token=${token}&file=${file}&from=${from.toFixed(6)}&to=${to.toFixed(6)}`;
  }

  #open() {
    const address = new URL('/live', location.href);
    address.protocol = 'ws:';
    address.search = location.search;
    address.hash = '';
    const socket = new WebSocket(address);
    this.socket = socket;
    socket.onopen = () => {
      this.connected = true;
      this.#pause = kFirstPause;
      this.dispatchEvent(new Event('open'));
      if (this.#live) this.follow(this.#live);
    };
    socket.onmessage = ({ data }) => this.#receive(JSON.parse(data));
    socket.onclose = () => {
      const was = this.connected;
      this.connected = false;
      for (const { failed } of this.#waiting.values()) failed(new Error('the connection was lost'));
      this.#waiting.clear();
      if (was) this.dispatchEvent(new Event('lost'));
      setTimeout(() => this.#open(), this.#pause);
      this.#pause = Math.min(2 * this.#pause, kLongestPause);
    };
  }

  #receive(message) {
    if (message.news) {
      if (this.#live) this.#live.from = message.from + Math.max(message.frames.length - 1, 0);
      this.dispatchEvent(new CustomEvent('news', { detail: message }));
      return;
    }
    const waiting = this.#waiting.get(message.id);
    this.#waiting.delete(message.id);
    if (!waiting) return;
    if (message.error) waiting.failed(new Error(message.error));
    else waiting.done(message);
  }
}
