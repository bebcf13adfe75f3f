// The frame in words: where every object is or why it is missing, and where every blob ended.
import { element, table } from '../common/dom.js';
import { count, number } from '../common/format.js';
import { colourOfBody } from './bodies.js';
import { endOf, kEnds } from './ends.js';

const place = (p) => p.map((v) => v.toFixed(1)).join(', ');
const apart = (a, b) => Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);

function about(frame) {
  return element('p', { class: 'note' },
    `${frame.queries} ${frame.queries === 1 ? 'query' : 'queries'} until the next` +
    (frame.us == null ? '' : ` · ${number(frame.us, 'µs')} in the library`) +
    (frame.decoder ? ` · decoder: ${frame.decoder.trim()}` : '') +
    (frame.events.includes('corrupt') ? ' · its check byte is wrong' : ''));
}

/** What the estimator makes of an object. */
function estimatedText({ estimated, sd, velocity }) {
  return estimated ? ` · estimated ${place(estimated)} ± ${number(sd, 'mm')}, ${number(Math.hypot(...velocity), 'mm/s')}` : '';
}

/** Where an object is, or why it is missing. */
function described(object, i) {
  const error = object.raw && object.truth ? ` · ${number(apart(object.raw, object.truth), 'mm')} off the truth` : '';
  const text = !object.seen ? `missing: ${object.reason || 'not in the block'}`
    : `${place(object.raw)} mm${object.held ? `, held: ${object.reason}` : ''}${error}`;
  return [element('i', { class: 'dot', style: `--swatch: var(--object-${i})` }), element('b', {}, `Object ${i}`),
    ` ${text}${estimatedText(object)}`];
}

const kUsed = new Set(['used', 'one camera']); // ends of markers that count

/** How well its turn is known; of two markers only their line is. */
const turnedWithin = (pose) => (pose.turn_sd ? `${pose.turn_sd.map((v) => v.toFixed(2)).join(', ')}°`
  : `its line ${pose.direction_sd.toFixed(2)}°`);

/** Where a body is, and which of its markers say so. */
function aboutBody({ name, markers }, pose, i) {
  const head = [element('i', { class: 'dot', style: `--swatch: var(${colourOfBody(i)})` }), element('b', {}, name)];
  if (!pose) return element('p', { class: 'body missing' }, ...head, ' not known');
  const used = pose.ends.filter((end) => kUsed.has(end)).length;
  const missed = pose.ends.map((end, k) => (kUsed.has(end) ? null : `${markers[k].id} ${end}`)).filter(Boolean);
  return element('p', { class: 'body' }, ...head,
    ` ${place(pose.p)} mm, turned ${pose.q.map((v) => v.toFixed(3)).join(', ')} (x, y, z, w)` +
    ` · ± ${pose.sd.map((v) => v.toFixed(2)).join(', ')} mm, ${turnedWithin(pose)}` +
    (pose.age == null ? ` · ${used} of ${markers.length} markers` : ` · out of sight for ${pose.age.toFixed(2)} s`) +
    (missed.length > 0 && pose.age == null ? ` (${missed.join(', ')})` : '') +
    (used > 0 ? `, ${pose.residual.toFixed(2)} px` : ''));
}

function funnel({ blobs }) {
  const found = kEnds.map(({ key, text }) => [text, blobs.filter((blob) => blob.end === key).length]);
  return element('p', { class: 'funnel' }, `${blobs.length} blobs: ` +
    (found.filter(([, n]) => n > 0).map(([text, n]) => `${n} ${text}`).join(', ') || 'none'));
}

function ends({ blobs }) {
  return table(
    ['blob', { text: 'camera', words: true }, 'id', 'x, px', 'y, px', '⌀', { text: 'ended', words: true }, { text: 'why', words: true }],
    blobs.map((blob, i) => [`${i}`, blob.camera ? 'right' : 'left', `${blob.id}`, blob.x.toFixed(2),
      blob.y.toFixed(2), `${blob.d}`, endOf(blob.end).text, blob.why]));
}

export class FrameTable {
  /** @param onPoint  as ImagesView's; onObject: an object's line was chosen */
  constructor({ onPoint, onObject }) {
    this.onPoint = onPoint;
    this.onObject = onObject;
    this.host = element('section', { class: 'ends', 'aria-label': 'The packet' });
  }

  /** @param bodies  as the server tells of the first file's */
  show(frame, other, state, bodies = []) {
    if (!frame) {
      this.host.replaceChildren(element('p', { class: 'note' }, 'No packet is here yet.'));
      return;
    }
    const scroll = this.host.scrollTop;
    this.host.replaceChildren(
      element('h2', {}, 'This packet'),
      about(frame),
      element('div', { class: 'objects' },
        frame.objects.map((object, i) => this.#object(object, other?.objects[i], i, state))),
      ...bodies.map((body, i) => aboutBody(body, frame.bodies?.[i], i)),
      funnel(frame),
      this.#pointable(ends(frame), state));
    if (other) this.host.append(
      element('h2', { class: 'second' }, `The second file: packet ${count(other.frame)} at ${other.t.toFixed(3)} s`),
      about(other),
      element('div', { class: 'objects' }, other.objects.map((object, i) =>
        element('p', { class: `object${object.seen ? '' : ' missing'}` }, ...described(object, i)))),
      funnel(other),
      ends(other));
    this.host.scrollTop = scroll;
  }

  #object(object, other, i, { selected }) {
    const second = object.raw && other?.raw ? ` · ${number(apart(object.raw, other.raw), 'mm')} from the other file's` : '';
    return element('button', {
      type: 'button', class: `object${object.seen ? '' : ' missing'}`, 'aria-pressed': String(selected === i),
      onclick: () => this.onObject(selected === i ? null : i),
    }, ...described(object, i), second);
  }

  /** The blobs of the first file are pointed at here and in the images alike. */
  #pointable(view, { pointed }) {
    view.querySelectorAll('tbody tr').forEach((row, i) => {
      row.tabIndex = 0;
      row.classList.toggle('pointed', i === pointed);
      row.dataset.blob = i;
      row.addEventListener('pointerenter', () => this.onPoint(i));
      row.addEventListener('focus', () => this.onPoint(i));
      row.addEventListener('pointerleave', () => this.onPoint(null));
    });
    return view;
  }

  /** Only the mark of a row: the table itself stays. */
  point(blob) {
    for (const row of this.host.querySelectorAll('tr[data-blob]'))
      row.classList.toggle('pointed', Number(row.dataset.blob) === blob);
  }
}
