// One stretch of time for all charts over time: by mouse in any of them, by keys, by links.
export class TimeZoom {
  #charts = new Set();

  constructor(begin, end) {
    this.begin = begin;
    this.end = end;
    this.whole();
  }

  add(chart) {
    this.#charts.add(chart);
    if (this.isZoomed) chart.setScale('x', { min: this.from, max: this.to });
  }

  remove(chart) {
    this.#charts.delete(chart);
  }

  /** What a chart did by itself. */
  note(from, to) {
    this.from = from;
    this.to = to;
  }

  get isZoomed() {
    return this.from > this.begin || this.to < this.end;
  }

  set(from, to) {
    const least = (this.end - this.begin) / 1e5;
    const size = Math.min(Math.max(to - from, least), this.end - this.begin);
    if (!(size > 0)) return;
    this.from = Math.min(Math.max((from + to - size) / 2, this.begin), this.end - size);
    this.to = this.from + size;
    for (const chart of this.#charts) chart.setScale('x', { min: this.from, max: this.to });
  }

  whole() {
    this.from = this.begin;
    this.to = this.end;
    for (const chart of this.#charts) chart.setScale('x', { min: this.begin, max: this.end });
  }

  /** Plus and minus zoom, the arrows move, 0 and Home show everything. */
  onKey(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const size = this.to - this.from;
    const middle = (this.from + this.to) / 2;
    const actions = {
      '+': () => this.set(middle - size / 4, middle + size / 4),
      '-': () => this.set(middle - size, middle + size),
      ArrowLeft: () => this.set(this.from - size / 4, this.to - size / 4),
      ArrowRight: () => this.set(this.from + size / 4, this.to + size / 4),
      0: () => this.whole(),
      Home: () => this.whole(),
    };
    actions['='] = actions['+'];
    const action = actions[event.key];
    if (!action) return;
    action();
    event.preventDefault();
  }
}
