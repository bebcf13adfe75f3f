import 'uplot/dist/uPlot.min.css';
import '../common/style.css';
import { histogram, timeChart } from '../common/charts.js';
import { element, table } from '../common/dom.js';
import { count, microseconds, number, percent, plural, seconds } from '../common/format.js';
import { decodeRows } from '../common/rows.js';
import { pathView, presenceView } from '../common/views.js';
import { TimeZoom } from '../common/zoom.js';

const { numbers, rows: packed } = JSON.parse(document.getElementById('report-data').textContent);
const rows = {
  ...packed, objects: packed.objects.map(decodeRows), bodies: packed.bodies.map(decodeRows),
};
const { recording, objects, bodies, rules } = numbers;
const columns = {
  times: rows.times, packets: rows.packets, calls: rows.calls, shared: rows.column_s > 0,
};
const zoom = new TimeZoom(rows.times[0], rows.times[rows.times.length - 1]);
const objectName = (n) => `Object ${n}`;
const colorOf = (n) => `--object-${n}`;
const bodyName = ({ name }) => name || 'Body without a name';
const sections = []; // for the contents

// Everything that is drawn on canvas, and so anew for another width or theme.
const drawings = [];
function drawn(drawing) {
  drawings.push(drawing);
  return drawing.host;
}

function section(title, note, ...content) {
  const id = title.toLowerCase().replace(/[^a-z]+/g, '-');
  sections.push({ id, title });
  return element('section', { id },
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

function figure(value, label, detail) {
  return element('div', { class: 'figure' },
    element('b', {}, value), element('span', {}, label), element('small', {}, detail));
}

function figures() {
  const all = (pick) => objects.map(pick).filter((value) => value != null);
  const worst = (pick) => (all(pick).length ? Math.max(...all(pick)) : null);
  const seen = all((o) => o.presence.seen).reduce((a, b) => a + b, 0);
  const packets = all((o) => o.presence.packets).reduce((a, b) => a + b, 0);
  const time = numbers.packet_time_us.distribution;
  return element('div', { class: 'figures' },
    figure(count(recording.packets), 'packets',
      `${seconds(recording.seconds)}, ${number(recording.packets_per_second)} a second`),
    figure(percent(seen, packets), 'seen',
      `${plural(objects.reduce((n, o) => n + o.presence.gaps, 0), 'gap')}, longest ` +
      seconds(worst((o) => o.presence.longest_gap?.seconds))),
    recording.has_truth && figure(number(worst((o) => o.error_mm.raw?.median), 'mm'), 'median error',
      `worst object; 99 % within ${number(worst((o) => o.error_mm.raw?.p99), 'mm')}`),
    figure(number(worst((o) => o.epipolar_px?.median), 'px'), 'epipolar residual',
      'median, worst object'),
    figure(count(numbers.jumps.count), numbers.jumps.count === 1 ? 'jump' : 'jumps',
      `${plural(numbers.outliers.count, 'outlier')}, ${plural(numbers.swaps.count, 'id swap')}` +
      `${numbers.swaps.known_from_truth ? '' : ' suspected'}`),
    figure(microseconds(time?.median), 'per packet', `99 % within ${microseconds(time?.p99)}`));
}

function notices() {
  if (numbers.notices.length === 0) return null;
  return element('ul', { class: 'notices' }, numbers.notices.map((text) => element('li', {}, text)));
}

function contents() {
  return element('nav', { class: 'contents', 'aria-label': 'Contents' },
    sections.map(({ id, title }) => element('a', { href: `#${id}` }, title)),
    objects.map(({ object }) => element('a', { href: `#object-${object}` }, objectName(object))),
    bodies.map((body, n) => element('a', { href: `#body-${n}` }, bodyName(body))));
}

// ---- where to look first

/** A moment as a link into the charts of its object, or of the first one. */
function momentLink(event) {
  const show = () => {
    const length = Math.max((event.until_s ?? event.time_s) - event.time_s, 0);
    const margin = Math.max(length, 0.5);
    zoom.set(event.time_s - margin, event.time_s + length + margin);
    const object = event.object ?? event.objects?.[0] ?? objects[0].object;
    const card = document.getElementById(`object-${object}`);
    card.scrollIntoView();
    card.querySelector('.chart')?.focus({ preventScroll: true });
  };
  return element('button', { type: 'button', class: 'link', onclick: show }, seconds(event.time_s));
}

const kWorst = {
  gap: 'Longest gap', step: 'Largest step', error: 'Largest error', corrupt: 'Corrupt packet',
};

function worstMoments() {
  if (numbers.worst.length === 0) return null;
  const howBad = (m) =>
    (m.seconds != null ? seconds(m.seconds) : m.distance_mm != null ? number(m.distance_mm, 'mm') : '');
  return section('Worst moments',
    'The longest gaps, the largest steps from one packet to the next, the largest errors where ' +
    'the truth is known, and packets whose own check byte is wrong; of those of one object within ' +
    'a second, the worst. The time shows the moment in the charts; the command explains it.',
    table(['What', { text: 'Object', words: true }, 'How bad', 'Time', 'Packet', 'Call',
      { text: 'Explained by', words: true }],
    numbers.worst.map((m) => [kWorst[m.kind] ?? m.kind, m.object == null ? '' : String(m.object),
      howBad(m), momentLink(m), count(m.packet), count(m.call), element('code', {}, m.command)])));
}

// ---- paths

const hidden = new Set();

function paths() {
  const shapes = rows.objects.map(({ path, true_path }, n) =>
    ({ path, truth: true_path, color: colorOf(objects[n].object) }));
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
    }, swatch(colorOf(object.object), objectName(object.object))));
  return section('Paths from three sides',
    'Delivered positions to scale, in the right camera’s frame as the library delivers it: x to ' +
    'the right, y up, z from the scene towards the cameras. A line is drawn on across gaps of ' +
    `up to ${seconds(rules.bridge_s)}; a dot marks the end.`,
    element('div', { class: 'legend' }, toggles,
      recording.has_truth && swatch('--truth', 'truth', true)),
    element('div', { class: 'views' }, views.map(drawn)));
}

// ---- who was seen

function visibility() {
  const bars = rows.objects.map(({ seen, absent }, n) => {
    const { object, presence: p } = objects[n];
    const says = `seen in ${percent(p.seen, p.packets)} of ${plural(p.packets, 'packet')}, ` +
      plural(p.gaps, 'gap');
    return { label: objectName(object), color: colorOf(object), seen, absent, says };
  });
  const line = ({ object, presence: p, held }) => [
    objectName(object), percent(p.seen, p.packets), count(p.packets - p.seen),
    recording.has_truth ? percent(p.visible_seen, p.visible) : null,
    count(p.gaps), seconds(p.longest_gap?.seconds), count(p.longest_gap?.packets),
    p.longest_gap ? momentLink({ ...p.longest_gap, object }) : '–', seconds(p.without_s), count(held),
  ].filter((cell) => cell !== null);
  return section('Frames seen and gaps',
    'Of the packets that reached the library while the product type had the object. A gap ' +
    'is as long as the time from the sighting before it to the one behind it, or to the ' +
    'recording’s ends. The dark part of a bar, from below, is the share of packets without the object.',
    drawn(presenceView(rows.times, bars)),
    table([
      'Object', 'Seen', 'Packets without',
      recording.has_truth && { text: 'Seen of visible', title: 'of the packets in which both cameras reported a marker of the object' },
      'Gaps', 'Longest gap', 'in packets', 'at',
      { text: 'Time without', title: 'from the first packet without it to the next sighting, of all gaps' },
      { text: 'Held', title: 'packets in which a jump or ratio test kept the earlier position' },
    ].filter(Boolean), objects.map(line)));
}

// ---- one card per object

const kQuantities = [
  { label: 'Error', unit: 'mm', size: true, of: (o) => [
    { label: 'raw', color: '--raw', row: o.raw_error },
    { label: 'filtered', color: '--filtered', row: o.filtered_error },
    { label: 'estimated', color: '--estimated', row: o.estimated_error },
    { label: 'smoothed', color: '--smoothed', row: o.smoothed_error }] },
  { label: 'Epipolar residual', unit: 'px', size: true, of: (o) => [
    { label: 'residual', color: '--raw', row: o.epipolar }] },
  { label: 'Ray gap', unit: 'mm', size: true, of: (o) => [
    { label: 'gap', color: '--raw', row: o.ray_gap }] },
];

function hasValues(row) {
  return row != null && (row.values ?? row.low).some((value) => value != null);
}

function eventsOf(n) {
  return [
    ...numbers.jumps.first.filter((jump) => jump.object === n),
    ...numbers.outliers.first.filter((outlier) => outlier.object === n),
    ...numbers.swaps.first.filter((swap) => swap.objects.includes(n)),
  ].map((event) => event.time_s);
}

function objectCard(object, place) {
  const n = object.object;
  const row = rows.objects[place];
  const id = `object-${n}`;
  const events = eventsOf(n);
  const lines = (axis) => {
    const found = [
      { label: 'raw', color: '--raw', row: row.raw?.[axis] },
      { label: 'filtered', color: '--filtered', row: row.filtered?.[axis] },
      { label: 'smoothed', color: '--smoothed', row: row.smoothed?.[axis] },
    ];
    const truth = { label: 'truth', color: '--truth', dash: [5, 4], row: row.truth?.[axis] };
    // On top it shows where it leaves the others; as a wide band it would hide them.
    return rows.column_s > 0 ? [truth, ...found] : [...found, truth];
  };
  const charts = [
    ...['x', 'y', 'z'].map((axis) => ({ label: axis, unit: 'mm', lines: lines(axis) })),
    ...kQuantities.map(({ of, ...rest }) => ({ ...rest, lines: of(row) })),
  ].map((chart) => ({ ...chart, lines: chart.lines.filter((line) => hasValues(line.row)) }))
    .filter((chart) => chart.lines.length > 0);
  const legend = element('div', { class: 'legend' },
    swatch('--raw', 'raw: as delivered'),
    row.filtered ? swatch('--filtered', 'filtered: the pose answer') : null,
    row.estimated_error ? swatch('--estimated', 'estimated, live') : null,
    row.smoothed ? swatch('--smoothed', 'smoothed, from before and after') : null,
    row.truth ? swatch('--truth', 'truth', true) : null,
    events.length ? swatch('--bad', 'jump, outlier or swap', true) : null);
  if (charts.length === 0)
    return element('article', { id }, element('h3', {}, swatch(colorOf(n), objectName(n))),
      element('p', { class: 'note' }, 'Never seen in this recording.'));
  return element('article', { id },
    element('h3', {}, swatch(colorOf(n), objectName(n))), legend,
    charts.map(({ lines: drawnLines, ...options }, i) =>
      drawn(timeChart(columns, drawnLines, {
        ...options, of: objectName(n), zoom, events, last: i === charts.length - 1,
        get height() { return widthOfPrint ? 84 : 112; },
      }))));
}

/** What there is to say where nothing filtered can be drawn. */
function silence() {
  const asked = objects.reduce((sum, { answers }) => sum + answers.asked, 0);
  const answered = objects.reduce((sum, { answers }) => sum + answers.answered, 0);
  if (asked === 0)
    return ' The host asked for no poses in this recording, so that there is nothing filtered.';
  if (answered === 0)
    return ` The host asked for ${plural(asked, 'pose')}, and no answer held an object, so that ` +
      'there is nothing filtered.';
  return '';
}

function overTime() {
  const envelope = rows.column_s > 0
    ? ` The recording is long: every column stands for ${number(1000 * rows.column_s, 'ms')} and ` +
      'spans its smallest and largest value; zoomed in, columns part.'
    : '';
  return section('Over time',
    'Position, error, epipolar residual and ray gap of every object. Drag to zoom all charts, ' +
    'double-click to see everything again; or, with a chart focused, plus, minus, the arrow keys ' +
    'and 0.' + envelope + silence(),
    element('p', {},
      element('button', { type: 'button', onclick: () => zoom.whole() }, 'Show everything')),
    objects.map(objectCard));
}

// ---- markers that belong together

function bodyCard(body, n) {
  const { error, residual_px: residual, markers_visible: visible } = body;
  const { position_error, orientation_error, residual: residuals, visible: seen } = rows.bodies[n];
  const charts = [
    { label: 'Position error', unit: 'mm', row: position_error },
    { label: 'Orientation error', unit: '°', row: orientation_error },
    { label: 'Residual', unit: 'px', row: residuals },
    { label: 'Markers visible', unit: `of ${body.ids.length}`, row: seen },
  ].filter(({ row }) => hasValues(row));
  return element('article', { id: `body-${n}` },
    element('h3', {}, bodyName(body)),
    element('div', { class: 'figures' },
      figure(percent(body.poses, body.packets), 'with a pose',
        `${count(body.packets)} packets, ${count(body.bridged)} bridged`),
      error && figure(number(error.position_mm?.rms, 'mm'), 'position error',
        `root mean square; 99 % within ${number(error.position_mm?.p99, 'mm')}`),
      error && figure(number(error.orientation_deg?.rms, '°'), 'orientation error',
        `root mean square; 99 % within ${number(error.orientation_deg?.p99, '°')}`),
      figure(number(residual?.rms, 'px'), 'residual', 'root mean square, per pixel number'),
      figure(number(visible?.mean), 'markers visible', `in the mean, of ${body.ids.length}`)),
    charts.map(({ row, label, unit }, i) =>
      drawn(timeChart(columns, [{ label: label.toLowerCase(), color: '--raw', row }], {
        label, unit, of: bodyName(body), zoom, size: true, last: i === charts.length - 1,
        get height() { return widthOfPrint ? 84 : 112; },
      }))));
}

function bodiesOverTime() {
  if (bodies.length === 0) return null;
  return section('Bodies',
    'Markers that belong together, followed live by all pixels of whichever cameras saw whichever ' +
    'of them. Errors are of the body’s origin and of its orientation, against the body laid over ' +
    `its markers’ true places${recording.has_truth ? '' : ' (not known, the recording holds no truth)'}; ` +
    'the residual is that of the markers’ pixels; visible is a marker that a camera saw.',
    bodies.map(bodyCard));
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
      ...['filtered', 'estimated', 'smoothed'].filter((kind) => error[kind]).map((kind) =>
        [`${objectName(object)}, ${kind}`, ...spread(error[kind], 'mm')]),
    ])));
}

/** The same light, read in four ways. */
function betterPositions() {
  const ways = [
    ['delivered', 'raw', () => null], ['answered', 'filtered', (o) => o.lag],
    ['estimated', 'estimated', (o) => o.lag_estimated],
    ['smoothed', 'smoothed', (o) => o.lag_smoothed],
  ];
  const lines = objects.flatMap((object) => {
    const delivered = object.error_mm.raw?.rms;
    return ways.filter(([, key]) => key === 'raw' || object.error_mm[key] || object.jitter_mm[key] ||
      (key === 'filtered' ? object.lag : object[`lag_${key}`]))
      .map(([name, key, lag]) => {
        const error = object.error_mm[key];
        return [`${objectName(object.object)}, ${name}`, number(error?.rms, 'mm'),
          error && delivered ? number(error.rms / delivered) : '–', number(error?.p95, 'mm'),
          number(object.jitter_mm[key]?.total, 'mm'), number(lag(object)?.ms, 'ms')];
      });
  });
  return section('What the same light could give',
    'Four ways to read the same blobs: delivered and answered by the library; estimated, by a ' +
    'filter beside it that knows depth from across, live and without delay; smoothed, by all ' +
    'that came before and after. The latter two of more than two minutes in four half minutes, ' +
    'evenly spread. In the packets that delivered the object. Error: root mean square' +
    `${recording.has_truth ? '' : ' (not known, the recording holds no truth)'}; lag: behind the ` +
    'delivered positions, found where the object moved.',
    table(['', 'Error', 'of delivered', 'Error, 95 %', 'Jitter at rest', 'Lag'], lines));
}

function geometry() {
  const { calibration } = recording;
  return section('Epipolar residual and ray gap',
    'Of the pairs of blobs behind each position: how far the blobs lie from each other’s epipolar ' +
    'line, and the shortest distance between the two rays, the larger of both pairs for an object ' +
    'with two markers. They grow with noise, and stay large where the calibration is off.' +
    (calibration ? ` Baseline ${number(calibration.baseline_mm, 'mm')}.` : ''),
    table(['Object', ...kSpread], objects.flatMap(({ object, epipolar_px, ray_gap_mm }) => [
      [`${objectName(object)}, residual`, ...spread(epipolar_px, 'px')],
      [`${objectName(object)}, ray gap`, ...spread(ray_gap_mm, 'mm')],
    ])));
}

/** How well the pairs of each tenth of the recording agree: flat, or a rig that moves. */
function calibrationOverTime() {
  const health = recording.calibration_health;
  if (!health || health.trend.length < 2) return null;
  // Steps: a tenth has one value from its beginning to its end.
  const steps = (pick) => health.trend.flatMap((tenth) => [pick(tenth), pick(tenth)]);
  const times = health.trend.flatMap((tenth) => [tenth.from_s, tenth.to_s]);
  return section('Calibration over time',
    `By what the cameras saw: ${health.text}. Each step is a tenth of the recording: how far its ` +
    'pairs of blobs lie from agreeing, with the calibration as given and with the one that ' +
    'refining by the whole recording gives.',
    element('article', {},
      element('div', { class: 'legend' }, swatch('--bad', 'as given'), swatch('--smoothed', 'refined')),
      drawn(timeChart({ times, packets: times.map(() => -1) }, [
        { label: 'as given', color: '--bad', row: { values: steps((tenth) => tenth.residual_px) } },
        { label: 'refined', color: '--smoothed', row: { values: steps((tenth) => tenth.residual_refined_px) } },
      ], { of: 'Calibration', label: 'residual', unit: 'px', zoom, size: true, last: true }))));
}

function jitter() {
  const known = objects.some((object) => object.jitter_mm.rest_known_from_truth);
  const lines = objects.flatMap(({ object, jitter_mm }) =>
    ['raw', 'filtered', 'estimated', 'smoothed'].filter((kind) => jitter_mm[kind]).map((kind) => {
      const j = jitter_mm[kind];
      return [`${objectName(object)}, ${kind}`, count(j.windows),
        ...[j.x, j.y, j.z, j.total, j.largest].map((v) => number(v, 'mm'))];
    }));
  const rule = known
    ? `Rest is where the truth moves less than ${number(rules.rest_mm, 'mm')} along every axis for ` +
      `${rules.rest_packets} packets in a row.`
    : `Rest is taken for granted where, over ${rules.rest_packets} packets in a row and along every ` +
      'axis, at least half of the variance is already there between packets three apart.';
  return section('Jitter at rest',
    `${rule} Standard deviation about the mean of these windows; total is the root of the sum of ` +
    'squares, farthest the largest distance from the mean.',
    lines.length > 0
      ? table(['Object', 'Windows', 'x', 'y', 'z', 'Total', 'Farthest'], lines)
      : element('p', {},
        `No object was at rest, and seen, for ${rules.rest_packets} packets in a row.`));
}

function smoothing() {
  return section('What smoothing costs',
    'Lag is the shift at which the filtered positions agree best with the raw ones, found where ' +
    'the object moved; difference is filtered minus raw, root mean square, as they came and with ' +
    'the raw ones shifted by the lag. Answers that were asked for a later moment are left out. ' +
    'Bridged answers came while the latest block was without the object.' + silence(),
    table(['Object', 'Lag', 'Difference', 'shifted', 'Jitter raw', 'filtered', 'Poses asked',
      'answered', 'filtered', 'bridged', 'asked ahead'],
    objects.map(({ object, lag, jitter_mm: j, answers: a }) => [objectName(object),
      number(lag?.ms, 'ms'), number(lag?.difference_mm, 'mm'),
      number(lag?.shifted_difference_mm, 'mm'), number(j.raw?.total, 'mm'),
      number(j.filtered?.total, 'mm'),
      ...[a.asked, a.answered, a.filtered, a.bridged, a.ahead].map(count)])));
}

function jumpsAndSwaps() {
  const { jumps, outliers, swaps } = numbers;
  const events = [
    ...jumps.first.map((j) => [j, `Jump of ${objectName(j.object).toLowerCase()}`,
      `${number(j.distance_mm, 'mm')} in ${plural(j.packets, 'packet')}`]),
    ...outliers.first.map((o) => [o, `Outlier of ${objectName(o.object).toLowerCase()}`,
      `${number(o.distance_mm, 'mm')} off ${outliers.known_from_truth ? 'the truth' : 'its track'}`]),
    ...swaps.first.map((s) => [s, `Id swap of objects ${s.objects.join(' and ')}`,
      swaps.known_from_truth ? plural(s.packets, 'packet') : 'suspected']),
  ].sort((a, b) => a[0].packet - b[0].packet);
  const left = jumps.count + outliers.count + swaps.count - events.length;
  const limit = number(rules.jump_mm, 'mm');
  const outlierRule = outliers.known_from_truth
    ? `An outlier is farther than ${limit} from the truth; of packets in a row, the farthest.`
    : `An outlier stands alone: ${plural(rules.lonely_packets, 'packet')} at most with the object ` +
      `gone before and after, and farther than ${limit} from the straight line between the ` +
      'sightings around it.';
  const swapRule = swaps.known_from_truth
    ? `Two objects swapped ids where, for ${rules.swap_packets} packets or more, each was reported ` +
      'nearer to the other’s true place than to its own, and within half of their distance of it.'
    : `An id swap is suspected where two objects, more than ${number(rules.swap_separation_mm, 'mm')} ` +
      'apart, stand three packets later each where the other was (within a quarter of their ' +
      `distance), for ${rules.swap_packets} packets or more.`;
  const suspected = swaps.known_from_truth || swaps.count === 0 ? '' : ' suspected';
  return section('Jumps, outliers and id swaps',
    `A jump is a step of more than ${limit} per packet from one sighting to the next. ` +
    `${outlierRule} ${swapRule}`,
    element('p', {}, `${plural(jumps.count, 'jump')}, ${plural(outliers.count, 'outlier')}, ` +
      `${plural(swaps.count, 'id swap')}${suspected}.`),
    events.length > 0
      ? table(['Time', 'Packet', 'Call', { text: 'What', words: true },
        { text: 'How far, how long', words: true }],
      events.map(([event, ...rest]) =>
        [momentLink(event), count(event.packet), count(event.call), ...rest]))
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
    table(['Text', 'Level', 'Times', 'First in call', 'at'], numbers.messages.map((message) =>
      [element('code', {}, message.text), String(message.level), count(message.count),
        count(message.first.call), momentLink(message.first)])),
    numbers.messages_left_out > 0
      ? element('p', { class: 'note' },
        `And ${count(numbers.messages_left_out)} messages of other texts.`)
      : null);
}

function about() {
  const { calibration } = recording;
  const facts = [
    ['Calls', count(recording.calls)],
    ['Packets', count(recording.packets)],
    ['From the first call to the last', seconds(recording.seconds)],
    ['Packets a second, mean', number(recording.packets_per_second)],
    ['Interval of packets, median', number(recording.median_interval_ms, 'ms')],
    ['Corrupt packets', count(numbers.corrupt_packets)],
    ['Blocks delivered', count(recording.blocks)],
    ['Frames lost before the library', count(recording.frames_lost)],
    ['Calls dropped by the recorder', count(recording.dropped_calls)],
    ['Complete', recording.complete ? 'yes' : 'no'],
    ['Clock', recording.clock],
    ['Truth', recording.has_truth ? 'yes' : 'no'],
    ['Baseline', calibration ? number(calibration.baseline_mm, 'mm') : '–'],
    ['Calibration', recording.calibration_health ? recording.calibration_health.text : '–'],
  ];
  return section('The recording',
    'Lengths are in the unit of the calibration’s translation, which is taken to be the ' +
    'millimetre. Percentiles are by nearest rank; of very many values, they are off by ' +
    `${number(100 * rules.percentile_error)} % of themselves at most.`,
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
const body = [
  figures(), notices(), worstMoments(), paths(), visibility(), overTime(), bodiesOverTime(), betterPositions(), errors(), smoothing(),
  geometry(), calibrationOverTime(), jitter(), jumpsAndSwaps(), packetTimes(), messages(), about(),
];
document.getElementById('report').append(...[header(), contents(), ...body].filter(Boolean));

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
