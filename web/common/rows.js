// Rows of numbers as the page carries them: 32-bit floats, least byte first, in base64.

/** An array of numbers, null for none. */
export function decodeRow(text) {
  if (text == null) return null;
  const bytes = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
  const view = new DataView(bytes.buffer);
  return Array.from({ length: bytes.length / 4 }, (_, i) => {
    const value = view.getFloat32(4 * i, true);
    return Number.isFinite(value) ? value : null;
  });
}

/** The object with every text in it, however deep, decoded. */
export function decodeRows(value) {
  if (typeof value === 'string') return decodeRow(value);
  if (value == null || typeof value !== 'object' || Array.isArray(value)) return value;
  return Object.fromEntries(Object.entries(value).map(([key, item]) => [key, decodeRows(item)]));
}
