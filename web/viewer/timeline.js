// Time: the whole recording with a window on it, the window with the objects' presence and events.
import { element, styleOf } from '../common/dom.js';
import { seconds } from '../common/format.js';
import { prepare, tickStep, ticksIn } from '../common/views.js';

const kOverview = 26;
const kLane = 13;
const kMarks = 18;
const kAxis = 18;
const kLeft = 10;
const kLeastWindow = 0.05; // s

/** Top to bottom of the marks' row, and drawn in this order. */
const kMarkColors = { query: '--grid', message: '--accent', corrupt: '--bad', outlier: '--object-3', jump: '--object-1', gap: '--absent' };

export class Timeline {
  window = { from: 0, to: 1 };
  whole = { from: 0, to: 1 };
  loop = null;
  t = 0;
  #dragging = null;
  #room = 0; // px

  /** @param callbacks  {onTime(t), onWindow(), onLoop(), onHover(time, object or null)} */
  constructor(callbacks) {
    Object.assign(this, callbacks);
    this.canvas = element('canvas', { tabindex: 0, role: 'slider', 'aria-label': 'Time' });
    this.tip = element('p', { class: 'tip', role: 'status' });
    this.host = element('div', { class: 'timeline' }, this.canvas, this.tip);
    this.canvas.addEventListener('pointerdown', (event) => this.#press(event));
    this.canvas.addEventListener('pointermove', (event) => this.#move(event));
    this.canvas.addEventListener('pointerup', () => { this.#dragging = null; });
    this.canvas.addEventListener('pointerleave', () => this.onHover(null, null));
    this.canvas.addEventListener('wheel', (event) => {
      event.preventDefault();
      this.zoom(1.2 ** Math.sign(event.deltaY), this.#timeAt(event.offsetX));
    }, { passive: false });
    new ResizeObserver(() => {
      this.#room = this.host.clientWidth;
      this.draw();
    }).observe(this.host);
  }

  get width() {
    return Math.max(this.#room - 2 * kLeft, 50);
  }

  get lanes() {
    return this.series?.objects.slice(0, this.objects ?? 0) ?? [];
  }

  setWindow(from, to) {
    const size = Math.min(Math.max(to - from, kLeastWindow), Math.max(this.whole.to - this.whole.from, kLeastWindow));
    from = Math.min(Math.max(from, this.whole.from), Math.max(this.whole.to - size, this.whole.from));
    this.window = { from, to: from + size };
    this.onWindow();
    this.draw();
  }

  zoom(factor, around = this.t) {
    const { from, to } = this.window;
    around = Math.min(Math.max(around, from), to);
    this.setWindow(around - (around - from) * factor, around + (to - around) * factor);
  }

  /** The window follows the time that is shown. */
  keepInView(t, edge = 1) {
    const { from, to } = this.window;
    if (t >= from && t <= to) return;
    const size = to - from;
    this.setWindow(t - size * edge, t + size * (1 - edge));
  }

  #toX(t, { from, to } = this.window) {
    return kLeft + ((t - from) / (to - from || 1)) * this.width;
  }

  #timeAt(x, { from, to } = this.window) {
    return from + ((x - kLeft) / this.width) * (to - from);
  }

  #press(event) {
    this.canvas.setPointerCapture(event.pointerId);
    const inOverview = event.offsetY < kOverview;
    this.#dragging = inOverview ? 'window' : event.shiftKey ? 'loop' : 'time';
    this.#begin = this.#timeAt(event.offsetX);
    this.#move(event);
  }
  #begin = 0;

  #move(event) {
    const x = Math.min(Math.max(event.offsetX, kLeft), kLeft + this.width);
    if (this.#dragging === 'window') {
      const middle = this.#timeAt(x, this.whole);
      const size = this.window.to - this.window.from;
      this.setWindow(middle - size / 2, middle + size / 2);
      if (size >= this.whole.to - this.whole.from) this.onTime(middle);
    } else if (this.#dragging === 'loop') {
      const t = this.#timeAt(x);
      this.loop = { from: Math.min(t, this.#begin), to: Math.max(t, this.#begin) };
      this.onLoop();
      this.draw();
    } else if (this.#dragging === 'time') {
      this.onTime(this.#timeAt(x));
    } else {
      const lane = Math.floor((event.offsetY - kOverview - 4) / kLane);
      this.onHover(this.#timeAt(x), lane >= 0 && lane < this.lanes.length ? lane : null);
    }
  }

  say(text) {
    if (this.tip.textContent !== text) this.tip.textContent = text;
  }

  draw() {
    const width = this.#room;
    if (width < 60) return;
    const lanes = this.lanes.length;
    const height = kOverview + 4 + lanes * kLane + kMarks + kAxis;
    const context = prepare(this.canvas, width, height);
    this.#drawOverview(context);
    const top = kOverview + 4;
    if (this.loop) {
      context.fillStyle = styleOf('--loop');
      const x = this.#toX(this.loop.from);
      context.fillRect(x, top, this.#toX(this.loop.to) - x, lanes * kLane + kMarks);
    }
    this.lanes.forEach((lane, i) => this.#drawLane(context, lane, i, top + i * kLane));
    this.#drawMarks(context, this.series, this.window, top + lanes * kLane, kMarks - 4);
    this.#drawAxis(context, height);
    context.fillStyle = styleOf('--ink');
    const x = Math.round(this.#toX(this.t));
    if (x >= kLeft && x <= kLeft + this.width) {
      context.fillRect(x - 0.75, top - 2, 1.5, lanes * kLane + kMarks);
      context.beginPath();
      context.moveTo(x - 5, top - 4);
      context.lineTo(x + 5, top - 4);
      context.lineTo(x, top + 2);
      context.fill();
    }
    const { from, to } = this.whole;
    for (const [name, value] of [['valuemin', from], ['valuemax', to], ['valuenow', this.t]])
      this.canvas.setAttribute(`aria-${name}`, value.toFixed(3));
    this.canvas.setAttribute('aria-valuetext', seconds(this.t));
  }

  #drawOverview(context) {
    context.fillStyle = styleOf('--sunken');
    context.fillRect(kLeft, 0, this.width, kOverview - 4);
    if (this.overview) {
      this.#drawAbsence(context);
      this.#drawMarks(context, this.overview, this.whole, 2, kOverview - 8);
    }
    const x = this.#toX(this.window.from, this.whole);
    const size = Math.max(this.#toX(this.window.to, this.whole) - x, 3);
    context.strokeStyle = styleOf('--accent');
    context.lineWidth = 1.5;
    context.strokeRect(x, 0.75, size, kOverview - 5.5);
    context.fillStyle = styleOf('--ink');
    context.fillRect(this.#toX(this.t, this.whole) - 0.75, 0, 1.5, kOverview - 4);
  }

  #drawAbsence(context) {
    const { times, objects } = this.overview;
    const step = this.width / Math.max(times.length, 1);
    context.fillStyle = styleOf('--absent');
    times.forEach((time, i) => {
      let seen = 0;
      let absent = 0;
      for (const object of objects.slice(0, this.objects ?? 0)) {
        seen += object.seen[i];
        absent += object.absent[i];
      }
      if (absent === 0) return;
      context.globalAlpha = 0.45;
      const height = (kOverview - 4) * (absent / (seen + absent));
      context.fillRect(this.#toX(time, this.whole) - step / 2, kOverview - 4 - height, Math.max(step, 1), height);
    });
    context.globalAlpha = 1;
  }

  #drawLane(context, lane, i, y) {
    const { times } = this.series;
    const edge = (k) => this.#toX(k <= 0 ? this.series.from : k >= times.length ? this.series.to : (times[k - 1] + times[k]) / 2);
    const seen = styleOf(`--object-${i}`);
    const absent = styleOf('--absent');
    for (let k = 0; k < times.length; ++k) {
      const total = lane.seen[k] + lane.absent[k];
      if (total === 0) continue;
      const left = Math.max(edge(k), kLeft);
      const right = Math.min(Math.max(edge(k + 1), left + 1), kLeft + this.width);
      if (right <= left) continue;
      const share = lane.absent[k] / total;
      context.globalAlpha = this.hidden?.has(i) ? 0.3 : 1;
      context.fillStyle = seen;
      if (share < 1) context.fillRect(left, y + 1, right - left + 0.5, kLane - 4);
      context.fillStyle = absent;
      const mark = share === 0 ? 0 : Math.max(share * (kLane - 4), 1.5);
      if (mark > 0) context.fillRect(left, y + kLane - 3 - mark, right - left + 0.5, mark);
    }
    context.globalAlpha = 1;
  }

  #drawMarks(context, series, range, top, height) {
    if (!series) return;
    const kinds = Object.keys(kMarkColors);
    kinds.forEach((kind, row) => {
      const y = top + (row * height) / kinds.length;
      context.fillStyle = styleOf(kMarkColors[kind]);
      series.events[kind].forEach((count, i) => {
        if (count === 0) return;
        const x = this.#toX(series.times[i], range);
        if (x < kLeft || x > kLeft + this.width) return;
        context.fillRect(x - 0.75, y, 1.5, Math.max(height / kinds.length, 2));
      });
    });
  }

  #drawAxis(context, height) {
    const { from, to } = this.window;
    context.fillStyle = styleOf('--ink-soft');
    context.textBaseline = 'bottom';
    context.textAlign = 'center';
    for (const tick of ticksIn(from, to, tickStep(to - from, this.width / 80))) {
      const x = this.#toX(tick);
      context.fillRect(x, height - kAxis, 1, 3);
      if (x > 24 && x < kLeft + this.width - 14) context.fillText(`${+tick.toPrecision(8)} s`, x, height - 1);
    }
  }
}
