// What uPlot does not draw: paths in space, to scale, and who was there when.
import { element, styleOf } from './dom.js';

const kMargin = { left: 60, right: 10, top: 10, bottom: 30 };

export function prepare(canvas, width, height) {
  const scale = window.devicePixelRatio || 1;
  const [columns, rows] = [Math.round(width * scale), Math.round(height * scale)];
  const context = canvas.getContext('2d');
  // A canvas that is given a size is made anew, even if it is the one it has.
  if (canvas.width !== columns || canvas.height !== rows) {
    [canvas.width, canvas.height] = [columns, rows];
    canvas.style.width = `${width}px`;
    canvas.style.height = `${height}px`;
  }
  context.setTransform(scale, 0, 0, scale, 0, 0);
  context.clearRect(0, 0, width, height);
  context.setLineDash([]);
  context.globalAlpha = 1;
  context.font = `11px ${styleOf('--font')}`;
  return context;
}

/** 1, 2 or 5 times a power of ten, for about `wanted` ticks. */
export function tickStep(range, wanted) {
  const rough = range / wanted;
  const power = 10 ** Math.floor(Math.log10(rough));
  return power * [1, 2, 5, 10].find((m) => m * power >= rough);
}

export function ticksIn(low, high, step) {
  const ticks = [];
  for (let tick = Math.ceil(low / step); tick * step <= high; ++tick) ticks.push(tick * step);
  return ticks;
}

/**
 * The range of what is drawn. A few positions far off all others, as a ghost is, do not squeeze the
 * rest: they are left outside.
 */
function rangeOf(paths, axis) {
  const values = paths.flatMap((path) => path[axis].filter((value) => value != null));
  if (values.length === 0) return [-1, 1];
  values.sort((a, b) => a - b);
  const low = values[0];
  const high = values[values.length - 1];
  const inner = [values[Math.floor(0.01 * values.length)],
    values[Math.ceil(0.99 * values.length) - 1]];
  const size = inner[1] - inner[0];
  const isFarOff = high - low > 2 * size && size > 0;
  return isFarOff ? [inner[0] - 0.25 * size, inner[1] + 0.25 * size] : [low, high];
}

function countOutside(paths, view, [x0, x1], [y0, y1]) {
  let outside = 0;
  for (const path of paths)
    path[view.across].forEach((x, i) => {
      const y = path[view.up][i];
      if (x != null && (x < x0 || x > x1 || y < y0 || y > y1)) ++outside;
    });
  return outside;
}

function strokePath(context, across, up, toX, toY) {
  context.beginPath();
  let drawing = false;
  for (let i = 0; i < across.length; ++i) {
    if (across[i] == null) {
      drawing = false;
      continue;
    }
    const x = toX(across[i]);
    const y = toY(up[i]);
    if (drawing) context.lineTo(x, y);
    else {
      context.moveTo(x, y);
      // A position that stands alone is a dot.
      if (across[i + 1] == null) context.lineTo(x + 0.01, y);
    }
    drawing = true;
  }
  context.stroke();
}

/**
 * The paths seen along one axis, with the same scale in both directions.
 * @param view     {title, across, up, acrossLabel, upLabel}; across and up: 'x', 'y' or 'z'
 * @param objects  [{path, truth, color}]
 * @param shown    called when drawing; whether to draw object i
 */
export function pathView(view, objects, shown) {
  const canvas = element('canvas', { role: 'img', 'aria-label': view.title });
  const outside = element('span', { class: 'outside' });
  const host = element('figure', { class: 'view' },
    element('figcaption', {}, view.title, outside), canvas);
  return {
    host,
    draw(width) {
      const height = Math.min(width, 380);
      const context = prepare(canvas, width, height);
      const visible = objects.filter((object, i) => shown(i));
      const paths = visible.flatMap((object) => [object.path, object.truth]);
      const [x0, x1] = rangeOf(paths, view.across);
      const [y0, y1] = rangeOf(paths, view.up);
      const left = countOutside(paths, view, [x0, x1], [y0, y1]);
      outside.textContent = left === 0 ? '' : ` (${left} far off, not shown)`;
      const inner = {
        width: width - kMargin.left - kMargin.right,
        height: height - kMargin.top - kMargin.bottom,
      };
      const perPixel = 1.08 * Math.max((x1 - x0) / inner.width, (y1 - y0) / inner.height, 0.002);
      const centreX = (x0 + x1) / 2;
      const centreY = (y0 + y1) / 2;
      const toX = (x) => kMargin.left + inner.width / 2 + (x - centreX) / perPixel;
      const toY = (y) => kMargin.top + inner.height / 2 - (y - centreY) / perPixel;

      const step = tickStep(perPixel * inner.width, inner.width / 40);
      context.strokeStyle = styleOf('--grid');
      context.fillStyle = styleOf('--ink-soft');
      context.lineWidth = 1;
      context.textAlign = 'center';
      context.textBaseline = 'top';
      const halfWidth = (perPixel * inner.width) / 2;
      for (const x of ticksIn(centreX - halfWidth, centreX + halfWidth, step)) {
        line(context, toX(x), kMargin.top, toX(x), kMargin.top + inner.height);
        context.fillText(`${+x.toPrecision(6)}`, toX(x), height - kMargin.bottom + 4);
      }
      context.textAlign = 'right';
      context.textBaseline = 'middle';
      const halfHeight = (perPixel * inner.height) / 2;
      for (const y of ticksIn(centreY - halfHeight, centreY + halfHeight, step)) {
        line(context, kMargin.left, toY(y), kMargin.left + inner.width, toY(y));
        context.fillText(`${+y.toPrecision(6)}`, kMargin.left - 5, toY(y));
      }
      context.textAlign = 'right';
      context.textBaseline = 'bottom';
      context.fillText(view.acrossLabel, width - kMargin.right, height - 1);
      context.save();
      context.translate(11, kMargin.top);
      context.rotate(-Math.PI / 2);
      context.fillText(view.upLabel, 0, 4);
      context.restore();

      context.save();
      context.beginPath();
      context.rect(kMargin.left, kMargin.top, inner.width, inner.height);
      context.clip();
      context.lineJoin = 'round';
      context.lineCap = 'round';
      context.strokeStyle = styleOf('--truth');
      context.lineWidth = 1;
      context.setLineDash([4, 3]);
      for (const object of visible)
        strokePath(context, object.truth[view.across], object.truth[view.up], toX, toY);
      context.setLineDash([]);
      context.lineWidth = 1.25;
      for (const object of visible) {
        context.strokeStyle = styleOf(object.color);
        context.fillStyle = styleOf(object.color);
        const across = object.path[view.across];
        const up = object.path[view.up];
        strokePath(context, across, up, toX, toY);
        if (across.length > 0) dot(context, toX(across.at(-1)), toY(up.at(-1)));
      }
      context.restore();
    },
  };
}

function dot(context, x, y) {
  context.beginPath();
  context.arc(x, y, 3, 0, 2 * Math.PI);
  context.fill();
}

function line(context, x0, y0, x1, y1) {
  context.beginPath();
  context.moveTo(Math.round(x0) + 0.5, Math.round(y0) + 0.5);
  context.lineTo(Math.round(x1) + 0.5, Math.round(y1) + 0.5);
  context.stroke();
}

/**
 * One row per object: filled where it was seen; from below, and dark, the share of the packets that
 * were without it. What is thinner than a pixel is as faint as it is thin: 4 % are no full stripe.
 * @param objects  [{label, color, seen: [count], absent: [count], says: for screen readers}]
 */
export function presenceView(times, objects) {
  const canvas = element('canvas', { role: 'img', 'aria-label':
    `When every object was seen. ${objects.map(({ label, says }) => `${label}: ${says}`).join('. ')}` });
  const rowHeight = 30;
  const barHeight = 20;
  return {
    host: element('div', { class: 'chart' }, canvas),
    draw(width) {
      const left = 64;
      const right = 12;
      const height = objects.length * rowHeight + 26;
      const context = prepare(canvas, width, height);
      const begin = times[0];
      const end = times[times.length - 1];
      const onePixel = 1 / (window.devicePixelRatio || 1);
      const pixels = Math.max(Math.round((width - left - right) / onePixel), 1);
      const pixelOf = (t) =>
        Math.min(Math.floor(((t - begin) / (end - begin || 1)) * pixels), pixels - 1);
      const edge = (i) =>
        i <= 0 ? begin : i >= times.length ? end : (times[i - 1] + times[i]) / 2;

      objects.forEach((object, row) => {
        const top = row * rowHeight + 4;
        context.fillStyle = styleOf('--ink-soft');
        context.textAlign = 'right';
        context.textBaseline = 'middle';
        context.fillText(object.label, left - 8, top + barHeight / 2);
        context.fillStyle = styleOf('--sunken');
        context.fillRect(left, top, pixels * onePixel, barHeight);
        // The packets of every pixel. A column wider than a pixel counts in all of its pixels.
        const seen = new Float64Array(pixels);
        const absent = new Float64Array(pixels);
        for (let i = 0; i < times.length; ++i) {
          if (object.seen[i] + object.absent[i] === 0) continue;
          const last = Math.max(pixelOf(edge(i + 1)) - (i + 1 < times.length ? 1 : 0), pixelOf(edge(i)));
          for (let pixel = pixelOf(edge(i)); pixel <= last; ++pixel) {
            seen[pixel] += object.seen[i];
            absent[pixel] += object.absent[i];
          }
        }
        const seenColor = styleOf(object.color);
        const absentColor = styleOf('--absent');
        for (let pixel = 0; pixel < pixels; ++pixel) {
          if (seen[pixel] + absent[pixel] === 0) continue;
          const x = left + pixel * onePixel;
          const missing = absent[pixel] / (seen[pixel] + absent[pixel]);
          context.fillStyle = seenColor;
          if (missing < 1) context.fillRect(x, top, onePixel, barHeight);
          if (missing === 0) continue;
          const mark = missing * barHeight;
          context.globalAlpha = Math.min(mark / onePixel, 1);
          context.fillStyle = absentColor;
          context.fillRect(x, top + barHeight - Math.max(mark, onePixel), onePixel, Math.max(mark, onePixel));
          context.globalAlpha = 1;
        }
      });

      const axisTop = objects.length * rowHeight + 2;
      context.fillStyle = styleOf('--ink-soft');
      context.textAlign = 'center';
      context.textBaseline = 'top';
      const toX = (t) => left + ((t - begin) / (end - begin || 1)) * (width - left - right);
      if (end > begin)
        for (const tick of ticksIn(begin, end, tickStep(end - begin, (width - left) / 70)))
          context.fillText(`${+tick.toPrecision(6)} s`, toX(tick), axisTop + 4);
    },
  };
}
