// Any quantity over the window of time, drawn by the charts that the report has too.
import { element } from '../common/dom.js';
import { decodeRow } from '../common/rows.js';
import { timeChart } from '../common/charts.js';

const axis = (name) => ({
  key: name, label: `${name}, as delivered`, unit: 'mm',
  rows: [[name, 'raw', null], [`filtered_${name}`, 'filtered', null], [`estimated_${name}`, 'estimated', [7, 2]], [`true_${name}`, 'truth', [4, 3]]],
});

export const kQuantities = [
  axis('x'), axis('y'), axis('z'),
  { key: 'raw_error', label: 'distance from the truth', unit: 'mm', size: true, rows: [['raw_error', 'raw', null]] },
  { key: 'filtered_error', label: 'distance of the filtered position from the truth', unit: 'mm', size: true, rows: [['filtered_error', 'filtered', null]] },
  { key: 'estimated_error', label: 'distance of the estimated position from the truth', unit: 'mm', size: true, rows: [['estimated_error', 'estimated', null]] },
  { key: 'estimated_sd', label: "standard deviation of the estimated position", unit: 'mm', size: true, rows: [['estimated_sd', 'estimated', null]] },
  { key: 'speed', label: 'estimated speed', unit: 'mm/s', size: true, rows: [['speed', 'estimated', null]] },
  { key: 'epipolar', label: 'epipolar residual', unit: 'px', size: true, rows: [['epipolar', '', null]] },
  { key: 'ray_gap', label: 'gap between the rays', unit: 'mm', size: true, rows: [['ray_gap', '', null]] },
  { key: 'blobs', label: 'blobs', unit: 'per packet', size: true, frame: [['blobs_left', 'left', '--accent'], ['blobs_right', 'right', '--raw']] },
  { key: 'duration_us', label: 'time in the library', unit: 'µs', size: true, frame: [['duration_us', 'packet', '--accent']] },
  { key: 'interval_ms', label: 'since the packet before', unit: 'ms', size: true, frame: [['interval_ms', 'interval', '--accent']] },
  { key: 'queries', label: 'queries', unit: 'per packet', size: true, frame: [['queries', 'queries', '--accent']] },
];

function rowOf(packed) {
  if (!packed) return null;
  return packed.values ? { values: decodeRow(packed.values) } : { low: decodeRow(packed.low), high: decodeRow(packed.high) };
}

export class Plots {
  #charts = [];
  #ready = false;

  /** @param onZoom  called with what was zoomed to by mouse; onMove: a key asked for it */
  constructor({ onZoom, onChoice }) {
    this.onZoom = onZoom;
    this.chosen = ['x', 'z', 'epipolar'];
    this.choices = element('div', { class: 'choices', role: 'group', 'aria-label': 'Quantities' },
      kQuantities.map(({ key, label }) => element('button', {
        type: 'button', class: 'toggle', 'data-key': key, title: label,
        onclick: () => {
          this.chosen = this.chosen.includes(key) ? this.chosen.filter((k) => k !== key) : [...this.chosen, key];
          onChoice();
        },
      }, key.replaceAll('_', ' '))));
    this.list = element('div', { class: 'charts' });
    this.line = element('div', { class: 'now', 'aria-hidden': 'true' });
    this.host = element('section', { class: 'plots', 'aria-label': 'Plots' },
      element('h2', {}, 'Over time'), this.choices, element('div', { class: 'stack' }, this.list, this.line));
  }

  /** @param series  of every file, as the server answers; shown: {hidden, and what is toggled} */
  show(all, window, { hidden, objects, ...toggled }) {
    this.#ready = false;
    for (const chart of this.#charts) chart.destroy();
    this.#charts = [];
    this.list.replaceChildren();
    for (const button of this.choices.children)
      button.setAttribute('aria-pressed', String(this.chosen.includes(button.dataset.key)));
    const [series, second] = all;
    if (!series || series.times.length === 0) return;
    const columns = { times: series.times, packets: series.first, shared: series.frames_each > 1 };
    const zoom = { add() {}, remove() {}, onKey() {}, note: (from, to) => this.#note(from, to, window) };
    const quantities = kQuantities.filter(({ key }) => this.chosen.includes(key));
    quantities.forEach((quantity, place) => {
      const lines = quantity.frame
        ? quantity.frame.map(([key, label, color]) => ({ label, color, row: rowOf(series.rows[key]) }))
        : series.objects.slice(0, objects).flatMap((object, i) => hidden.has(i) ? [] : quantity.rows
          .filter(([, kind]) => !kind || toggled[kind])
          .map(([key, kind, dash]) => ({
            label: `${i}${kind ? ` ${kind}` : ''}`, color: kind === 'truth' ? '--truth' : `--object-${i}`,
            dash: dash ?? (kind === 'filtered' && quantity.rows.length > 1 ? [2, 2] : undefined), row: rowOf(object.rows[key]),
          })));
      const laid = second && second.times.length > 0 && !quantity.frame
        ? series.objects.slice(0, objects).flatMap((object, i) => hidden.has(i) ? [] : [{
          label: `${i} second file`, color: `--object-${i}`, dash: [8, 4],
          row: resampled(second, rowOf(second.objects[i]?.rows[quantity.rows[0][0]]), series.times),
        }]) : [];
      const chart = timeChart(columns, [...lines, ...laid], {
        label: quantity.label, unit: quantity.unit, of: 'Objects', size: quantity.size, zoom,
        last: place === quantities.length - 1, height: 120,
      });
      this.list.append(chart.host);
      const drawn = chart.draw(Math.max(this.list.clientWidth, 120));
      drawn.setScale('x', { min: window.from, max: window.to });
      this.#charts.push(drawn);
    });
    // Charts tell their first scales when they are drawn, which is later.
    requestAnimationFrame(() => requestAnimationFrame(() => { this.#ready = true; }));
  }

  #note(from, to, window) {
    if (!this.#ready || !(to > from)) return;
    const least = 1e-3 * (window.to - window.from);
    if (Math.abs(from - window.from) < least && Math.abs(to - window.to) < least) return;
    this.#ready = false;
    this.onZoom(from, to);
  }

  /** The line at the time that is shown. */
  setTime(t) {
    const [chart] = this.#charts;
    const x = chart ? chart.valToPos(t, 'x') : -1;
    const inside = chart && x >= 0 && x <= chart.over.clientWidth;
    this.line.hidden = !inside;
    if (inside) this.line.style.transform = `translateX(${x + chart.over.offsetLeft}px)`;
  }
}

/** A row of another file at these times: its nearest column's middle. */
function resampled({ times }, row, wanted) {
  if (!row) return null;
  const values = row.values ?? row.low.map((low, i) => (low == null ? null : (low + row.high[i]) / 2));
  let at = 0;
  const spacing = times.length > 1 ? (times[times.length - 1] - times[0]) / (times.length - 1) : 1;
  return {
    values: wanted.map((t) => {
      while (at + 1 < times.length && Math.abs(times[at + 1] - t) <= Math.abs(times[at] - t)) ++at;
      return Math.abs(times[at] - t) > 2 * spacing ? null : values[at];
    }),
  };
}
