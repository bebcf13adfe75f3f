// What both cameras saw: every blob at its place, and where it ended.
import { element, styleOf } from '../common/dom.js';
import { prepare } from '../common/views.js';
import { colorOf, drawEnd, endOf } from './ends.js';

const kNames = ['Left image', 'Right image'];
const kNear = 14; // px of the screen; so near a pointer takes a blob

export class ImagesView {
  #frame = null;
  #other = null;
  #point = null; // the blob that is pointed at, with its line: {blob, line}
  #heat = null;
  #size = { width: 640, height: 480 };

  /** @param onPoint  called with the number of the blob that is pointed at, or null */
  constructor({ onPoint }) {
    this.onPoint = onPoint;
    this.images = kNames.map((name, camera) => {
      const canvas = element('canvas', { tabindex: 0, role: 'img', 'aria-label': name });
      const text = element('figcaption', {}, name);
      const image = { canvas, text, camera, host: element('figure', { class: 'image' }, text, canvas) };
      canvas.addEventListener('pointermove', (event) => this.#pointAt(image, event));
      canvas.addEventListener('pointerleave', () => this.onPoint(null));
      new ResizeObserver(() => {
        image.room = { width: image.host.clientWidth, height: image.host.clientHeight - text.offsetHeight };
        this.draw();
      }).observe(image.host);
      return image;
    });
    this.host = element('div', { class: 'images' }, this.images.map((image) => image.host));
  }

  setRig({ width, height }) {
    this.#size = { width, height };
    this.draw();
  }

  show(frame, other, hidden) {
    this.#frame = frame;
    this.#other = other;
    this.hidden = hidden;
    this.draw();
  }

  /** @param point  {blob, line: pixels in the other image} or null */
  setPoint(point) {
    this.#point = point;
    this.draw();
  }

  setHeat(heat) {
    this.#heat = heat;
    this.draw();
  }

  /** From pixels of the image to those of the screen. */
  #frameOf({ room }) {
    if (!room) return { scale: 0, width: 0, height: 0 };
    const scale = Math.min(room.width / this.#size.width, Math.max(room.height, 60) / this.#size.height);
    return { scale, width: scale * this.#size.width, height: scale * this.#size.height };
  }

  #pointAt(image, event) {
    if (!this.#frame) return;
    const { scale } = this.#frameOf(image);
    let nearest = null;
    let least = kNear;
    this.#frame.blobs.forEach((blob, i) => {
      if (blob.camera !== image.camera) return;
      const distance = Math.hypot(blob.x * scale - event.offsetX, blob.y * scale - event.offsetY);
      if (distance < least) [nearest, least] = [i, distance];
    });
    if (nearest !== (this.#point?.blob ?? null)) this.onPoint(nearest);
  }

  draw() {
    for (const image of this.images) this.#draw(image);
  }

  #draw(image) {
    const { scale, width, height } = this.#frameOf(image);
    if (!(width > 20)) return;
    const context = prepare(image.canvas, width, height);
    context.fillStyle = styleOf('--image');
    context.fillRect(0, 0, width, height);
    if (this.#heat) this.#drawHeat(context, image.camera, scale);
    context.strokeStyle = styleOf('--grid-3d');
    context.beginPath();
    context.moveTo(width / 2, 0);
    context.lineTo(width / 2, height);
    context.moveTo(0, height / 2);
    context.lineTo(width, height / 2);
    context.stroke();
    const blobs = this.#frame?.blobs ?? [];
    const pointed = this.#point ? blobs[this.#point.blob] : null;
    if (pointed && pointed.camera !== image.camera && this.#point.line) {
      context.strokeStyle = styleOf(colorOf(pointed));
      context.setLineDash([5, 3]);
      context.lineWidth = 1.5;
      context.beginPath();
      for (const [x, y] of this.#point.line) context.lineTo(x * scale, y * scale);
      context.stroke();
      context.setLineDash([]);
    }
    for (const blob of this.#other?.blobs ?? []) {
      if (blob.camera !== image.camera) continue;
      context.strokeStyle = styleOf('--ink-soft');
      context.lineWidth = 1;
      drawEnd(context, 'diamond', blob.x * scale, blob.y * scale, 6);
    }
    let count = 0;
    blobs.forEach((blob, i) => {
      if (blob.camera !== image.camera) return;
      ++count;
      if (this.hidden?.has(blob.id)) return;
      const [x, y] = [blob.x * scale, blob.y * scale];
      const r = Math.max((blob.d / 2) * scale, 4);
      context.fillStyle = context.strokeStyle = styleOf(colorOf(blob));
      context.lineWidth = 1.75;
      drawEnd(context, endOf(blob.end).shape, x, y, r);
      context.fillStyle = styleOf('--ink-soft');
      context.textAlign = x > width - 24 ? 'right' : 'left';
      context.fillText(`${blob.id}`, x + (x > width - 24 ? -r - 3 : r + 3), y - r);
      if (i === this.#point?.blob || (pointed && pointed.other === i)) {
        context.strokeStyle = styleOf('--ink');
        context.lineWidth = 1.5;
        context.beginPath();
        context.arc(x, y, r + 5, 0, 2 * Math.PI);
        context.stroke();
      }
    });
    const said = `${kNames[image.camera]} · ${count} ${count === 1 ? 'blob' : 'blobs'}` +
      (pointed && pointed.camera === image.camera
        ? ` · id ${pointed.id} at ${pointed.x.toFixed(2)}, ${pointed.y.toFixed(2)} px: ${pointed.why}` : '');
    if (image.text.textContent !== said) image.text.textContent = said;
  }

  #drawHeat(context, camera, scale) {
    const { cell, columns, counts } = this.#heat;
    const most = Math.max(...counts[camera], 1);
    context.fillStyle = styleOf('--heat');
    counts[camera].forEach((count, i) => {
      if (count === 0) return;
      context.globalAlpha = 0.12 + 0.75 * Math.sqrt(count / most);
      const edge = (n) => Math.round(n * cell * scale);
      const [column, row] = [i % columns, Math.floor(i / columns)];
      context.fillRect(edge(column), edge(row), edge(column + 1) - edge(column), edge(row + 1) - edge(row));
    });
    context.globalAlpha = 1;
  }
}
