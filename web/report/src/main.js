import 'uplot/dist/uPlot.min.css';
import './style.css';
import { histogram, timeChart } from './charts.js';
import { element, table } from './dom.js';
import { count, microseconds, number, percent, plural, seconds } from './format.js';
import { pathView, presenceView } from './views.js';

const { numbers, rows } = JSON.parse(document.getElementById('report-data').textContent);
const { recording, objects } = numbers;
const objectName = (n) => `Object ${n}`;
const colorOf = (n) => `--object-${n}`;

// Everything that is drawn on canvas, and so anew for another width or theme.
const drawings = [];
function drawn(drawing) {
  drawings.push(drawing);
  return drawing.host;
}

function section(title, note, ...content) {
  return element('section', {},
    element('h2', {}, title), note && element('p', { class: 'note' }, note), ...content);
}

function swatch(color, text, dashed) {
  return element('span', { class: 'swatch' },
    element('i', { style: `--swatch: var(${color})`, class: dashed && 'dashed' }), text);
}

// ---- what the page begins with

function header() {
  const theme = element('button', { type: 'button', class: 'theme', onclick: switchTheme });
  return element('header', {},
    element('div', {},
      element('p', { class: 'over' }, 'Tracking report'),
      element('h1', {}, recording.file),
      element('p', { class: 'note' },
        `Product type ${recording.product_types.join(', then ')} · library ` +
        `${recording.library_version} · ${recording.platform}`)),
    theme);
}

function figures() {
  const all = (pick) => objects.map(pick).filter((value) => value != null);
  const worst = (pick) => (all(pick).length ? Math.max(...all(pick)) : null);
  const seen = all((o) => o.presence.seen).reduce((a, b) => a + b, 0);
  const packets = all((o) => o.presence.packets).reduce((a, b) => a + b, 0);
  const time = numbers.packet_time_us.distribution;
  const figure = (value, label, detail) =>
    element('div', { class: 'figure' },
      element('b', {}, value), element('span', {}, label), element('small', {}, detail));
  return element('div', { class: 'figures' },
    figure(count(recording.packets), 'packets',
      `${seconds(recording.seconds)} at ${number(recording.packets_per_second, 'Hz')}`),
    figure(percent(seen, packets), 'seen',
      `${plural(objects.reduce((n, o) => n + o.presence.gaps, 0), 'gap')}, longest ` +
      seconds(worst((o) => o.presence.longest_gap_s))),
    recording.has_truth && figure(number(worst((o) => o.error_mm.raw?.median), 'mm'), 'median error',
      `worst object; 99 % within ${number(worst((o) => o.error_mm.raw?.p99), 'mm')}`),
    figure(number(worst((o) => o.epipolar_px?.median), 'px'), 'epipolar residual',
      'median, worst object'),
    figure(count(numbers.jumps.count), numbers.jumps.count === 1 ? 'jump' : 'jumps',
      `${plural(numbers.swaps.count, 'id swap')}${numbers.swaps.known_from_truth ? '' : ' suspected'}`),
    figure(microseconds(time?.median), 'per packet', `99 % within ${microseconds(time?.p99)}`));
}

function notices() {
  if (numbers.notices.length === 0) return null;
  return element('ul', { class: 'notices' }, numbers.notices.map((text) => element('li', {}, text)));
}

// ---- paths

const hidden = new Set();

function paths() {
  const shapes = rows.objects.map(({ path, true_path }, n) =>
    ({ path, truth: true_path, color: colorOf(n) }));
  const shown = (n) => !hidden.has(n);
  const views = [
    { title: 'From the cameras', across: 'x', up: 'y', acrossLabel: 'x, mm (right)', upLabel: 'y, mm (up)' },
    { title: 'From above', across: 'x', up: 'z', acrossLabel: 'x, mm (right)', upLabel: 'z, mm (to the cameras)' },
    { title: 'From the side', across: 'z', up: 'y', acrossLabel: 'z, mm (to the cameras)', upLabel: 'y, mm (up)' },
  ].map((view) => pathView(view, shapes, shown));

  const toggles = objects.map((object, n) =>
    element('button', {
      type: 'button', class: 'toggle', 'aria-pressed': 'true',
      onclick: ({ currentTarget }) => {
        if (!hidden.delete(n)) hidden.add(n);
        currentTarget.setAttribute('aria-pressed', String(shown(n)));
        views.forEach(draw);
      },
    }, swatch(colorOf(n), objectName(n))));
  return section('Paths from three sides',
    'Delivered positions to scale, in the right camera’s frame as the library delivers it: x to ' +
    'the right, y up, z from the scene towards the cameras. A line is drawn on across gaps of ' +
    'up to a quarter of a second; a dot marks the end.',
    element('div', { class: 'legend' }, toggles,
      recording.has_truth && swatch('--truth', 'truth', true)),
    element('div', { class: 'views' }, views.map(drawn)));
}

// ---- who was seen

function visibility() {
  const bars = rows.objects.map(({ seen, absent }, n) =>
    ({ label: objectName(n), color: colorOf(n), seen, absent }));
  const line = ({ object, presence: p, held, answers }) => [
    objectName(object), percent(p.seen, p.packets), count(p.packets - p.seen),
    recording.has_truth ? percent(p.visible_seen, p.visible) : null,
    count(p.gaps), seconds(p.longest_gap_s), count(p.longest_gap_packets), seconds(p.all_gaps_s),
    count(held), count(answers.bridged),
  ].filter((cell) => cell !== null);
  return section('Frames seen and gaps',
    'Of the packets that reached the library while the product type had the object. A gap lies ' +
    'between two sightings and is as long as the time between them. The marks below the bars are ' +
    'packets without the object.',
    drawn(presenceView(rows.presence_times, bars)),
    table([
      'Object', 'Seen', 'Packets without',
      recording.has_truth && { text: 'Seen of visible', title: 'of the packets in which both cameras reported a marker of the object' },
      'Gaps', 'Longest', 'in packets', 'All gaps',
      { text: 'Held', title: 'packets in which a jump or ratio test kept the earlier position' },
      { text: 'Bridged answers', title: 'pose answers given while the latest block is without the object' },
    ].filter(Boolean), objects.map(line)));
}

// ---- one card per object

const kQuantities = [
  { label: 'Error', unit: 'mm', size: true, of: (o) => [
    { label: 'raw', color: '--raw', row: o.raw_error },
    { label: 'filtered', color: '--filtered', row: o.filtered_error }] },
  { label: 'Epipolar residual', unit: 'px', size: true, of: (o) => [
    { label: 'residual', color: '--accent', row: o.epipolar }] },
  { label: 'Ray gap', unit: 'mm', size: true, of: (o) => [
    { label: 'gap', color: '--accent', row: o.ray_gap }] },
];

function hasValues(row) {
  return row != null && (row.values ?? row.low).some((value) => value != null);
}

function eventsOf(n) {
  return [
    ...numbers.jumps.first.filter((jump) => jump.object === n),
    ...numbers.swaps.first.filter((swap) => swap.objects.includes(n)),
  ].map((event) => event.time_s);
}

function objectCard(object) {
  const n = object.object;
  const row = rows.objects[n];
  const events = eventsOf(n);
  const lines = (axis) => {
    const found = [
      { label: 'raw', color: '--raw', row: row.raw?.[axis] },
      { label: 'filtered', color: '--filtered', row: row.filtered?.[axis] },
    ];
    const truth = { label: 'truth', color: '--truth', dash: [5, 4], row: row.truth?.[axis] };
    // On top it shows where it leaves the others; as a wide band it would hide them.
    return rows.bucket_s > 0 ? [truth, ...found] : [...found, truth];
  };
  const charts = [
    ...['x', 'y', 'z'].map((axis) => ({ label: axis, unit: 'mm', lines: lines(axis) })),
    ...kQuantities.map(({ of, ...rest }) => ({ ...rest, lines: of(row) })),
  ].map((chart) => ({ ...chart, lines: chart.lines.filter((line) => hasValues(line.row)) }))
    .filter((chart) => chart.lines.length > 0);
  const legend = element('div', { class: 'legend' },
    swatch('--raw', 'raw: as delivered'),
    row.filtered ? swatch('--filtered', 'filtered: the pose answer') : null,
    row.truth ? swatch('--truth', 'truth', true) : null,
    events.length ? swatch('--bad', 'jump or swap', true) : null);
  if (charts.length === 0)
    return element('article', {}, element('h3', {}, swatch(colorOf(n), objectName(n))),
      element('p', { class: 'note' }, 'Never seen in this recording.'));
  return element('article', {},
    element('h3', {}, swatch(colorOf(n), objectName(n))), legend,
    charts.map(({ lines: drawnLines, ...options }, i) =>
      drawn(timeChart(rows.times, drawnLines, { ...options, events, last: i === charts.length - 1 }))));
}

function overTime() {
  const envelope = rows.bucket_s > 0
    ? ` The recording is long: every column stands for ${number(1000 * rows.bucket_s, 'ms')} and ` +
      'spans its smallest and largest value.'
    : '';
  const silent = objects.every((object) => object.answers.count === 0)
    ? ' The host asked for no poses in this recording, so that there is nothing filtered.' : '';
  return section('Over time',
    'Position, error, epipolar residual and ray gap of every object. Drag to zoom all charts, ' +
    'double-click to see everything again.' + envelope + silent,
    objects.map(objectCard));
}

// ---- tables

function spread(d, unit) {
  if (d == null) return Array(6).fill('–');
  return [count(d.count), ...[d.mean, d.median, d.p95, d.p99, d.largest].map((v) => number(v, unit))];
}

const kSpread = ['Values', 'Mean', 'Median', '95 %', '99 %', 'Largest'];

function errors() {
  if (!recording.has_truth)
    return section('Error', 'The recording holds no truth, so the error is not known.');
  return section('Error',
    'Distance from the true position, which for the object with two markers is their middle. ' +
    'A filtered position is compared with the truth of the moment that it was asked for.',
    table(['Object', ...kSpread], objects.flatMap(({ object, error_mm: error }) => [
      [`${objectName(object)}, raw`, ...spread(error.raw, 'mm')],
      ...(error.filtered ? [[`${objectName(object)}, filtered`, ...spread(error.filtered, 'mm')]] : []),
    ])));
}

function geometry() {
  const { calibration } = recording;
  return section('Epipolar residual and ray gap',
    'Of the pairs of blobs behind each position: how far the blobs lie from each other’s epipolar ' +
    'line, and the shortest distance between the two rays, the larger of both pairs for an object ' +
    'with two markers. They grow with noise, and stay large where the calibration is off.' +
    (calibration ? ` Baseline ${number(calibration.baseline, 'mm')}.` : ''),
    table(['Object', ...kSpread], objects.flatMap(({ object, epipolar_px, ray_gap_mm }) => [
      [`${objectName(object)}, residual`, ...spread(epipolar_px, 'px')],
      [`${objectName(object)}, ray gap`, ...spread(ray_gap_mm, 'mm')],
    ])));
}

function jitter() {
  const known = objects.some((object) => object.jitter_mm.rest_known_from_truth);
  const lines = objects.flatMap(({ object, jitter_mm }) =>
    ['raw', 'filtered'].filter((kind) => jitter_mm[kind]).map((kind) => {
      const j = jitter_mm[kind];
      return [`${objectName(object)}, ${kind}`, count(j.windows),
        ...[j.x, j.y, j.z, j.total, j.largest].map((v) => number(v, 'mm'))];
    }));
  const rule = known
    ? 'Rest is where the truth moves less than 0.1 mm along every axis for 45 packets in a row.'
    : 'Rest is taken for granted where, over 45 packets in a row and along every axis, at least ' +
      'half of the variance is already there between packets three apart.';
  return section('Jitter at rest',
    `${rule} Standard deviation about the mean of these windows; total is the root of the sum of ` +
    'squares, farthest the largest distance from the mean.',
    lines.length > 0
      ? table(['Object', 'Windows', 'x', 'y', 'z', 'Total', 'Farthest'], lines)
      : element('p', {}, 'No object was at rest, and seen, for 45 packets in a row.'));
}

function jumpsAndSwaps() {
  const { jumps, swaps } = numbers;
  const events = [
    ...jumps.first.map((j) => [j.time_s, j.packet, `Jump of ${objectName(j.object).toLowerCase()}`,
      `${number(j.distance_mm, 'mm')} in ${plural(j.packets, 'packet')}`]),
    ...swaps.first.map((s) => [s.time_s, s.packet,
      `Id swap of objects ${s.objects.join(' and ')}`,
      swaps.known_from_truth ? plural(s.packets, 'packet') : 'suspected']),
  ].sort((a, b) => a[1] - b[1]);
  const left = jumps.count + swaps.count - events.length;
  const swapRule = swaps.known_from_truth
    ? 'An id swap is a run of packets in which an object was reported nearest to another one’s ' +
      'true place, and within half of their distance.'
    : 'An id swap is suspected where two objects, more than 50 mm apart, stand three packets ' +
      'later each where the other was (within a quarter of their distance).';
  return section('Jumps and id swaps',
    `A jump is a step of more than ${number(jumps.limit_mm, 'mm')} per packet from one sighting to the next. ${swapRule}`,
    element('p', {}, `${plural(jumps.count, 'jump')}, ${plural(swaps.count, 'id swap')}` +
      `${swaps.known_from_truth || swaps.count === 0 ? '' : ' suspected'}.`),
    events.length > 0
      ? table(['Time', 'Packet', { text: 'What', words: true }, { text: 'How far, how long', words: true }],
        events.map(([t, ...rest]) => [seconds(t), ...rest.map(String)]))
      : null,
    left > 0 ? element('p', { class: 'note' }, `And ${count(left)} more.`) : null);
}

function packetTimes() {
  const { distribution: d, histogram: bins, source } = numbers.packet_time_us;
  const note = source === 'recorded'
    ? 'As the recorder measured it in the host: the InputStream call with the host’s callbacks.'
    : 'The recording holds no times. These were measured while this report was made, in a replay ' +
      'on the machine that made it, with a callback that only copies the block.';
  if (d == null || bins.length === 0)
    return section('Time per packet', 'Nothing was measured.');
  const marks = [['50 %', d.median], ['90 %', d.p90], ['99 %', d.p99], ['99.9 %', d.p999]]
    .map(([share, value]) => ({ label: `${share}: ${microseconds(value)}`, value }));
  return section('Time per packet', `${note} Both axes are logarithmic.`,
    drawn(histogram(bins, marks)),
    table(['', 'Packets', 'Mean', '50 %', '90 %', '95 %', '99 %', '99.9 %', 'Largest'],
      [['Time', count(d.count),
        ...[d.mean, d.median, d.p90, d.p95, d.p99, d.p999, d.largest].map(microseconds)]]));
}

function messages() {
  if (numbers.messages.length === 0)
    return section('Messages', 'The library logged nothing.');
  return section('Messages', 'What the library logged, in order of the first time.',
    table(['Text', 'Level', 'Times', 'First in call'], numbers.messages.map((message) =>
      [element('code', {}, message.text), String(message.level), count(message.count),
        count(message.first_call)])));
}

function about() {
  const { calibration } = recording;
  const facts = [
    ['Calls', count(recording.calls)],
    ['Packets', count(recording.packets)],
    ['Blocks delivered', count(recording.blocks)],
    ['Frames lost before the library', count(recording.frames_lost)],
    ['Calls dropped by the recorder', count(recording.dropped_calls)],
    ['Complete', recording.complete ? 'yes' : 'no'],
    ['Clock', recording.clock],
    ['Truth', recording.has_truth ? 'yes' : 'no'],
    ['Baseline', calibration ? number(calibration.baseline, 'mm') : '–'],
  ];
  return section('The recording',
    'Lengths are in the unit of the calibration’s translation, which is taken to be the ' +
    'millimetre. Percentiles are by nearest rank.',
    element('dl', {}, facts.map(([name, value]) =>
      element('div', {}, element('dt', {}, name), element('dd', {}, value)))),
    element('p', { class: 'note' },
      'Made by algtrack. Charts by uPlot (MIT License, © Leon Sorokin).'));
}

// ---- drawing

let widthOfPrint = null;

function draw(drawing) {
  drawing.chart?.destroy?.();
  const width = drawing.host.clientWidth;
  drawing.chart = drawing.draw(Math.max(Math.floor(widthOfPrint?.(drawing) ?? width), 120));
}

function drawAll() {
  drawings.forEach(draw);
}

function setTheme(theme) {
  document.documentElement.dataset.theme = theme;
  document.querySelector('.theme').textContent = theme === 'dark' ? 'Light' : 'Dark';
  drawAll();
}

function switchTheme() {
  setTheme(document.documentElement.dataset.theme === 'dark' ? 'light' : 'dark');
}

document.title = `${recording.file} – tracking report`;
document.getElementById('report').append(...[
  header(), figures(), notices(), paths(), visibility(), overTime(), errors(), geometry(), jitter(),
  jumpsAndSwaps(), packetTimes(), messages(), about(),
].filter(Boolean));

const dark = matchMedia('(prefers-color-scheme: dark)');
setTheme(dark.matches ? 'dark' : 'light');
dark.addEventListener('change', () => setTheme(dark.matches ? 'dark' : 'light'));

let lastWidth = innerWidth;
addEventListener('resize', () => {
  if (innerWidth === lastWidth || widthOfPrint) return;
  lastWidth = innerWidth;
  drawAll();
});

// On paper: light, and as wide as a sheet of A4 or letter between its margins.
const kPaperWidth = 680;
let themeOfScreen = null;
addEventListener('beforeprint', () => {
  themeOfScreen = document.documentElement.dataset.theme;
  widthOfPrint = (drawing) =>
    drawing.host.classList.contains('view') ? (kPaperWidth - 24) / 3 : kPaperWidth - 2;
  setTheme('light');
});
addEventListener('afterprint', () => {
  widthOfPrint = null;
  setTheme(themeOfScreen);
});
