// The keyboard: one list for what keys do and for what the help says.
import { element } from '../common/dom.js';

/** @param actions  [{keys: ['ArrowLeft', ...], shift: true if needed, text, run(event)}] */
export function listen(actions) {
  addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (document.querySelector('dialog[open]') || event.target.closest?.('select, input')) return;
    const isButton = event.target.closest?.('button, a');
    if (isButton && (event.key === ' ' || event.key === 'Enter')) return;
    const action = actions.find(({ keys, shift }) =>
      keys.includes(event.key) && (shift === undefined || shift === event.shiftKey));
    if (!action) return;
    event.preventDefault();
    action.run(event);
  });
}

const kNames = { ' ': 'space', ArrowLeft: '←', ArrowRight: '→' };

export function helpDialog(actions) {
  const dialog = element('dialog', { 'aria-label': 'Keys' },
    element('h2', {}, 'Keys'),
    element('dl', {}, actions.map(({ keys, shift, text }) => element('div', {},
      element('dt', {}, keys.map((key) => element('kbd', {}, `${shift && key.length > 1 ? 'shift ' : ''}${kNames[key] ?? key}`))),
      element('dd', {}, text)))),
    element('p', { class: 'note' }, 'Drag in the scene turns it, the wheel comes nearer. Drag in the ' +
      'time line moves through time, shift and drag marks a loop, the wheel zooms; drag in the strip ' +
      'above moves the window. A drag over a plot zooms to it.'),
    element('button', { type: 'button', onclick: () => dialog.close() }, 'Close'));
  document.body.append(dialog);
  return dialog;
}
