// Charts over time and the histogram, drawn by uPlot.
import uPlot from 'uplot';
import { element, styleOf } from './dom.js';
import { count, number, seconds } from './format.js';

const kTimeSync = 'time';
const kAxisWidth = 58;
const kLogFloor = 0.001; // micrometres and thousandths of a pixel: less is not shown

/** A value that stands alone between gaps has no line: it is drawn as a point. */
function lonelyPoints(chart, series) {
  const values = chart.data[series];
  const [from, to] = chart.series[0].idxs;
  const lonely = [];
  for (let i = from; i <= to; ++i)
    if (values[i] != null && values[i - 1] == null && values[i + 1] == null) lonely.push(i);
  return lonely;
}

function axis(extra) {
  return {
    stroke: styleOf('--ink-soft'),
    font: `11px ${styleOf('--font')}`,
    grid: { stroke: styleOf('--grid'), width: 1 },
    ticks: { stroke: styleOf('--grid'), width: 1, size: 4 },
    ...extra,
  };
}

/** Vertical lines where something happened. */
function drawEvents(chart, times) {
  const { ctx, bbox } = chart;
  ctx.save();
  ctx.strokeStyle = styleOf('--bad');
  ctx.lineWidth = devicePixelRatio;
  ctx.setLineDash([3 * devicePixelRatio, 3 * devicePixelRatio]);
  for (const time of times) {
    if (time < chart.scales.x.min || time > chart.scales.x.max) continue;
    const x = Math.round(chart.valToPos(time, 'x', true));
    ctx.beginPath();
    ctx.moveTo(x, bbox.top);
    ctx.lineTo(x, bbox.top + bbox.height);
    ctx.stroke();
  }
  ctx.restore();
}

/** The powers of ten; where those are few, also twice and five times them. `low` and `high`: log10 */
function logarithmicTicks(low, high) {
  const ticks = [];
  for (let decade = Math.floor(low); decade <= high; ++decade)
    for (const step of high - low < 2.5 ? [1, 2, 5] : [1]) ticks.push(decade + Math.log10(step));
  return ticks.filter((tick) => tick >= low && tick <= high);
}

function ticksOfLogarithmicScale(chart, axisIndex, min, max) {
  return logarithmicTicks(Math.log10(min), Math.log10(max)).map((tick) => 10 ** tick);
}

function isLogarithmic(rows) {
  const values = rows.flatMap((row) => row.values ?? row.high).filter((v) => v != null);
  if (values.length === 0) return false;
  values.sort((a, b) => a - b);
  return values[values.length - 1] > 20 * Math.max(values[values.length >> 1], kLogFloor);
}

function logarithmicScale() {
  return {
    distr: 3,
    range: (chart, min, max) => [Math.max((min ?? 1) / 1.5, kLogFloor), (max ?? 1) * 1.5],
  };
}

function scaleFromZero() {
  return { range: (chart, min, max) => [0, max > 0 ? 1.08 * max : 1] };
}

function scaleAround() {
  return {
    range: (chart, min, max) => {
      if (min == null) return [0, 1];
      const margin = Math.max(0.08 * (max - min), 0.001);
      return [min - margin, max + margin];
    },
  };
}

/** "packets 17 to 19, calls 71 to 82" of column i. */
function momentOf({ packets, calls, shared }, i) {
  if (packets[i] < 0) return '';
  const span = (name, firsts) => {
    const next = firsts.slice(i + 1, i + 3).find((first) => first >= 0);
    const last = next === undefined || !shared ? firsts[i] : next - 1;
    return last > firsts[i] ? `${name}s ${count(firsts[i])}–${count(last)}` : `${name} ${count(firsts[i])}`;
  };
  return calls ? `${span('packet', packets)}, ${span('call', calls)}` : span('packet', packets);
}

function extentOf(row) {
  let low = Infinity;
  let high = -Infinity;
  for (const value of row.values ?? row.low) if (value != null && value < low) low = value;
  for (const value of row.values ?? row.high) if (value != null && value > high) high = value;
  return `${number(low)} to ${number(high)}`;
}

/**
 * One quantity over time. The cursor and the zoom are shared with all other charts over time.
 * @param columns  {times: seconds, packets, calls (if known): of each column's first packet, -1 = none; shared
 *                 (of packets): columns hold more than one packet}
 * @param lines  [{label, color: CSS variable, dash, row}]; row as in the data: {values} or
 *               {low, high}
 * @param options  {label, unit, of: whose, zoom: TimeZoom, last: with the time under it,
 *                  size: never negative, events: [seconds]}
 */
export function timeChart(columns, lines, options) {
  const { times } = columns;
  const { zoom } = options;
  lines = lines.filter((line) => line.row != null);
  const logarithmic = options.size && isLogarithmic(lines.map((line) => line.row));
  const visible = (values) =>
    logarithmic ? values.map((v) => (v == null ? v : Math.max(v, kLogFloor))) : values;

  const readout = element('span', { class: 'readout', 'aria-live': 'off' });
  const host = element('div', {
    class: 'chart', tabindex: 0, role: 'group', onkeydown: (event) => zoom.onKey(event),
    'aria-label': `${options.of}, ${options.label} in ${options.unit} over time. ` +
      lines.map(({ label, row }) => `${label} from ${extentOf(row)}`).join(', ') +
      '. Plus and minus zoom, arrow keys move, 0 shows everything.',
  },
  element('div', { class: 'chart-label' },
    element('b', {}, options.label), `, ${options.unit}${logarithmic ? ', logarithmic' : ''}`),
  readout);

  const read = ({ label, row }, i) => {
    if (row.values) return `${label} ${number(row.values[i])}`;
    return `${label} ${number(row.low[i])} … ${number(row.high[i])}`;
  };
  const showValues = (chart) => {
    const i = chart.cursor.idx;
    readout.textContent = i == null ? ''
      : [seconds(times[i]), momentOf(columns, i), ...lines.map((line) => read(line, i))].join('   ');
  };
  let shown = null;

  return {
    host,
    draw(width) {
      const data = [times];
      const series = [{}];
      const bands = [];
      for (const { row, color, dash } of lines) {
        const stroke = styleOf(color);
        const style = {
          stroke,
          width: 1.25,
          dash,
          // A dashed line lies on top of others: its points leave theirs visible.
          points: { show: true, filter: lonelyPoints, size: dash ? 2 : 5, fill: stroke, width: 0 },
        };
        if (row.values) {
          data.push(visible(row.values));
          series.push(style);
        } else {
          bands.push({ series: [data.length, data.length + 1], fill: `${stroke}55` });
          data.push(visible(row.high), visible(row.low));
          series.push(style, { ...style });
        }
      }
      if (shown) zoom.remove(shown);
      const timeAxis = options.last
        ? { size: 34, values: (chart, ticks) => ticks.map((t) => `${t} s`) }
        : { size: 8, values: () => [], ticks: { show: false } };
      shown = new uPlot({
        width,
        height: (options.last ? 26 : 0) + (options.height ?? 112),
        padding: [6, 10, 0, 0],
        legend: { show: false },
        cursor: { sync: { key: kTimeSync }, drag: { x: true, y: false }, points: { size: 5 } },
        scales: {
          x: { time: false },
          y: logarithmic ? logarithmicScale() : options.size ? scaleFromZero() : scaleAround(),
        },
        axes: [
          axis(timeAxis),
          axis({
            size: kAxisWidth,
            space: 24,
            ...(logarithmic && { splits: ticksOfLogarithmicScale, filter: (u, ticks) => ticks }),
            values: (chart, ticks) => ticks.map((t) => (t == null ? '' : `${+t.toPrecision(6)}`)),
          }),
        ],
        series,
        bands,
        hooks: {
          setCursor: [showValues],
          setScale: [(chart, scale) => {
            if (scale === 'x') zoom.note(chart.scales.x.min, chart.scales.x.max);
          }],
          draw: [(chart) => drawEvents(chart, options.events ?? [])],
        },
      }, data, host);
      zoom.add(shown);
      return shown;
    },
  };
}

/**
 * How often which time was needed. Both axes are logarithmic.
 * @param bins  [[from, to, count]], microseconds
 * @param marks [{label, value}]
 */
export function histogram(bins, marks) {
  const host = element('div', { class: 'chart', role: 'img', 'aria-label':
    `How many packets needed which time. ${marks.map(({ label }) => label).join(', ')}` });
  const middles = bins.map(([from, to]) => (Math.log10(from) + Math.log10(to)) / 2);
  // An empty bin on either side: uPlot derives the bars' width from neighbours.
  const width = bins.length > 0 ? Math.log10(bins[0][1]) - Math.log10(bins[0][0]) : 1;
  const x = [middles[0] - width, ...middles, middles[middles.length - 1] + width];
  const y = [null, ...bins.map((bin) => bin[2] || null), null];
  const most = Math.max(...bins.map((bin) => bin[2]));

  const drawMarks = (chart) => {
    const { ctx, bbox } = chart;
    const scale = devicePixelRatio;
    ctx.save();
    ctx.font = `${11 * scale}px ${styleOf('--font')}`;
    ctx.textBaseline = 'top';
    let row = 0;
    let end = -Infinity;
    for (const { label, value } of marks) {
      if (!(value > 0)) continue;
      const position = chart.valToPos(Math.log10(value), 'x', true);
      ctx.strokeStyle = styleOf('--ink-soft');
      ctx.lineWidth = scale;
      ctx.setLineDash([4 * scale, 3 * scale]);
      ctx.beginPath();
      ctx.moveTo(position, bbox.top);
      ctx.lineTo(position, bbox.top + bbox.height);
      ctx.stroke();
      // Labels that would meet go one below the other.
      const size = ctx.measureText(label).width;
      row = position < end ? row + 1 : 0;
      end = Math.max(position < end ? end : -Infinity, position + size + 10 * scale);
      const left = position + size + 4 * scale > bbox.left + bbox.width;
      ctx.textAlign = left ? 'right' : 'left';
      ctx.fillStyle = styleOf('--ink');
      ctx.fillText(label, position + (left ? -4 : 4) * scale, bbox.top + (2 + 14 * row) * scale);
    }
    ctx.restore();
  };

  return {
    host,
    draw: (hostWidth) => new uPlot({
      width: hostWidth,
      height: 260,
      padding: [8, 12, 0, 0],
      legend: { show: false },
      cursor: { show: false },
      scales: {
        x: { time: false, range: (chart, min, max) => [min - width / 2, max + width / 2] },
        y: { distr: 3, range: () => [0.5, Math.max(2, most) * 4] },
      },
      axes: [
        axis({
          size: 34,
          splits: (chart, axisIndex, min, max) => logarithmicTicks(min, max),
          values: (chart, ticks) => ticks.map((tick) => {
            const value = 10 ** tick;
            const [shown, unit] = value < 999 ? [value, 'µs'] : [value / 1000, 'ms'];
            return `${+shown.toPrecision(1)} ${unit}`;
          }),
        }),
        axis({
          size: kAxisWidth,
          splits: (chart, axisIndex, min, max) =>
            logarithmicTicks(0, Math.log10(max)).filter(Number.isInteger).map((tick) => 10 ** tick),
          filter: (chart, ticks) => ticks,
          values: (chart, ticks) => ticks.map((tick) => `${tick}`),
        }),
      ],
      series: [{}, {
        fill: styleOf('--accent'),
        stroke: styleOf('--accent'),
        width: 0,
        paths: uPlot.paths.bars({ size: [0.9] }),
        points: { show: false },
      }],
      hooks: { draw: [drawMarks] },
    }, [x, y], host),
  };
}

