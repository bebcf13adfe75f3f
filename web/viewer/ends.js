// Where a blob can end: what it looks like, and in what order the table counts. Shapes tell the
// ends apart; the scale from grey to red says how far a blob came before it was refused.
export const kEnds = [
  ['delivered', 'delivered', 'circle', null],
  ['merged', 'merged into another', 'square', '--end-0'],
  ['no-weight', 'no weight', 'dot', '--end-0'],
  ['no-partner', 'no partner in the other image', 'triangle', '--end-1'],
  ['surplus', 'more than the other image has', 'triangle-down', '--end-1'],
  ['not-mutual', 'not each other\'s nearest', 'bow', '--end-2'],
  ['epipolar', 'refused by the epipolar test', 'cross', '--end-3'],
  ['too-near', 'too near', 'diamond', '--end-3'],
  ['too-deep', 'too deep', 'diamond', '--end-3'],
  ['jumped', 'jumped', 'plus', '--end-4'],
  ['far-from-reference', 'far from the reference', 'plus', '--end-4'],
  ['too-many', 'too many points', 'plus', '--end-4'],
  ['held-by-jump', 'held by the jump test', 'hexagon', '--end-2'],
  ['held-by-ratio', 'held by the ratio test', 'hexagon', '--end-2'],
].map(([key, text, shape, color]) => ({ key, text, shape, color }));

const byKey = new Map(kEnds.map((end) => [end.key, end]));

export function endOf(key) {
  return byKey.get(key) ?? { key, text: key, shape: 'cross', color: '--end-4' };
}

export function colorOf(blob) {
  const end = endOf(blob.end);
  return end.color ?? `--object-${Math.min(blob.id, 5)}`;
}

function polygon(context, x, y, r, corners, turn) {
  context.beginPath();
  for (let i = 0; i < corners; ++i) {
    const angle = turn + (2 * Math.PI * i) / corners;
    context.lineTo(x + r * Math.cos(angle), y + r * Math.sin(angle));
  }
  context.closePath();
}

/** Draws the mark of an end; fills what was delivered. */
export function drawEnd(context, shape, x, y, r) {
  const up = -Math.PI / 2;
  if (shape === 'circle' || shape === 'dot') {
    context.beginPath();
    context.arc(x, y, shape === 'dot' ? 1.5 : r, 0, 2 * Math.PI);
    context.fill();
    return;
  }
  if (shape === 'square') polygon(context, x, y, r, 4, Math.PI / 4);
  else if (shape === 'diamond') polygon(context, x, y, r, 4, 0);
  else if (shape === 'triangle') polygon(context, x, y, r, 3, up);
  else if (shape === 'triangle-down') polygon(context, x, y, r, 3, -up);
  else if (shape === 'hexagon') polygon(context, x, y, r, 6, 0);
  else {
    context.beginPath();
    const d = shape === 'plus' ? 0 : Math.PI / 4;
    for (const turn of [d, d + Math.PI / 2]) {
      context.moveTo(x - r * Math.cos(turn), y - r * Math.sin(turn));
      context.lineTo(x + r * Math.cos(turn), y + r * Math.sin(turn));
    }
    if (shape === 'bow') {
      context.moveTo(x - r, y - r);
      context.lineTo(x - r, y + r);
      context.moveTo(x + r, y - r);
      context.lineTo(x + r, y + r);
    }
  }
  context.stroke();
}
