// element('p', {class: 'note'}, 'text', otherElement): children that are null are left out.
export function element(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
    // Through the object model: the page's policy allows no style attribute.
    else if (name === 'style') node.style.cssText = value;
    else if (value !== false && value != null) node.setAttribute(name, value === true ? '' : value);
  }
  node.append(...children.flat().filter((child) => child != null));
  return node;
}

// To ask the browser costs a look at the whole page whenever something in it changed.
const styles = new Map();
let themeOfStyles;

/** The value of a colour or size that the style sheet defines. */
export function styleOf(name) {
  const { theme } = document.documentElement.dataset;
  if (theme !== themeOfStyles) styles.clear();
  themeOfStyles = theme;
  if (!styles.has(name))
    styles.set(name, getComputedStyle(document.documentElement).getPropertyValue(name).trim());
  return styles.get(name);
}

/** A table. Headings are texts, or {text, title, words: not numbers}; cells are texts or nodes. */
export function table(headings, rows) {
  const isNumber = (i) => i > 0 && !headings[i].words;
  const heading = (h, i) =>
    element('th', { scope: 'col', class: isNumber(i) && 'number', title: h.title }, h.text ?? h);
  const cell = (value, i) =>
    i === 0 ? element('th', { scope: 'row' }, value)
      : element('td', { class: isNumber(i) && 'number' }, value);
  return element('div', { class: 'scroll' },
    element('table', {},
      element('thead', {}, element('tr', {}, headings.map(heading))),
      element('tbody', {}, rows.map((row) => element('tr', {}, row.map(cell))))));
}
