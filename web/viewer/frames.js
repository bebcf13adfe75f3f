// The frames of one file as far as the page needs them. What it left behind is forgotten.
const kChunk = 64; // frames that are asked for at once
const kMostChunks = 64; // kept: 4096 frames

export class Frames {
  #chunks = new Map(); // number -> frames, maybe with holes; the least used first
  #asked = new Set();
  index = -1; // of the frame that is shown

  constructor(source, file, changed) {
    this.source = source;
    this.file = file;
    this.changed = changed;
    this.count = 0;
  }

  /** Forgets everything: the server started anew. */
  clear() {
    this.#chunks.clear();
    this.#asked.clear();
  }

  /** A frame, or null; then it is asked for. */
  get(i) {
    if (i < 0 || i >= this.count) return null;
    const number = Math.floor(i / kChunk);
    const chunk = this.#chunks.get(number);
    const frame = chunk?.[i % kChunk] ?? null;
    if (!frame) this.#load(number);
    return frame;
  }

  /** A frame that is there already, or null. */
  peek(i) {
    return this.#chunks.get(Math.floor(i / kChunk))?.[i % kChunk] ?? null;
  }

  get current() {
    return this.index < 0 ? null : this.get(this.index);
  }

  /** Whether frames are on their way. */
  get waits() {
    return this.#asked.size > 0;
  }

  /** Has the frames around `i` fetched, those next to it first. */
  prepare(i, ahead, behind) {
    const middle = Math.floor(i / kChunk);
    const first = Math.max(Math.floor((i - behind) / kChunk), 0);
    const last = Math.min(Math.floor((i + ahead) / kChunk), Math.floor((this.count - 1) / kChunk));
    const numbers = Array.from({ length: Math.max(last - first + 1, 0) }, (_, k) => first + k)
      .sort((a, b) => Math.abs(a - middle) - Math.abs(b - middle));
    for (const number of numbers) if (!this.#isWhole(number)) this.#load(number);
    // The nearest are used last, so that they are forgotten last.
    for (const number of numbers.reverse()) if (this.#chunks.has(number)) this.#keep(number, this.#chunks.get(number));
  }

  #isWhole(number) {
    const wanted = Math.min(kChunk, this.count - number * kChunk);
    const chunk = this.#chunks.get(number);
    if (!chunk || chunk.length < wanted) return false;
    for (let i = 0; i < wanted; ++i) if (!chunk[i]) return false;
    return true;
  }

  /** Frames that came on their own. */
  take(frames) {
    for (const frame of frames) {
      const number = Math.floor(frame.frame / kChunk);
      if (!this.#chunks.has(number)) this.#keep(number, []);
      this.#chunks.get(number)[frame.frame % kChunk] = frame;
      this.count = Math.max(this.count, frame.frame + 1);
    }
  }

  /** Goes on, over frames that are there, to the last one up to a time. */
  walkTo(t) {
    let moved = false;
    for (;;) {
      const next = this.get(this.index + 1);
      if (!next || next.t > t) break;
      ++this.index;
      moved = true;
    }
    return moved;
  }

  async seek(t) {
    const { frame, frames } = await this.source.ask('at', { file: this.file, t });
    this.take(frames ?? []);
    this.index = frame;
    return frame;
  }

  async #load(number) {
    if (this.#asked.has(number) || !this.source.connected) return;
    this.#asked.add(number);
    try {
      const from = number * kChunk;
      const answer = await this.source.ask('frames', { file: this.file, from, to: from + kChunk - 1 });
      this.#keep(number, answer.frames);
    } catch {
      return; // asked again when it is needed again
    } finally {
      this.#asked.delete(number);
    }
    this.changed();
  }

  #keep(number, frames) {
    this.#chunks.delete(number);
    this.#chunks.set(number, frames);
    for (const oldest of this.#chunks.keys()) {
      if (this.#chunks.size <= kMostChunks) break;
      this.#chunks.delete(oldest);
    }
  }
}
