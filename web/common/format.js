const kNone = '–';
const kSpace = '\u00a0'; // does not break between a number and its unit

/** Three significant digits, but never less than the whole number. */
export function number(value, unit = '') {
  if (value == null) return kNone;
  const size = Math.abs(value);
  const digits = size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 3;
  const text = value.toFixed(digits);
  return unit ? `${text}${kSpace}${unit}` : text;
}

export function count(value) {
  return value == null ? kNone : value.toLocaleString('en-US');
}

/** A share; 100 % only if nothing is missing, 0 % only if nothing is there. */
export function percent(part, whole) {
  if (part == null || !whole) return kNone;
  const share = (100 * part) / whole;
  if (part === whole || part === 0) return `${share}${kSpace}%`;
  return `${Math.min(99.99, Math.max(0.01, share)).toFixed(2)}${kSpace}%`;
}

export function seconds(value) {
  if (value == null) return kNone;
  if (value < 59.995) return `${value.toFixed(value < 9.9995 ? 3 : 2)}${kSpace}s`;
  // Rounded before it is divided: never "9 min 60.0 s".
  const tenths = Math.round(10 * value);
  const minutes = Math.floor(tenths / 600);
  return `${minutes}${kSpace}min ${((tenths - 600 * minutes) / 10).toFixed(1)}${kSpace}s`;
}

export function microseconds(value) {
  if (value == null) return kNone;
  return value < 1000 ? number(value, 'µs') : number(value / 1000, 'ms');
}

/** "1 jump", "2 jumps" */
export function plural(n, one, more = `${one}s`) {
  return `${count(n)} ${n === 1 ? one : more}`;
}
