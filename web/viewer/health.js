// Whether the calibration still belongs to the cameras, by what they saw: a line of the page.
import { element } from '../common/dom.js';

const kWidth = 120;
const kHeight = 22;
const kBadge = { good: 'calibration holds', stale: 'calibration is stale', drifts: 'cameras move', unknown: 'calibration not judged' };

const px = (value) => `${value.toPrecision(2)} px`;

function drawing(tag, attributes, ...children) {
  const node = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
  node.append(...children);
  return node;
}

/** The residual of each tenth of the recording, as given and refined: a step each. */
function trendOf(trend) {
  if (trend.length < 2) return null;
  const from = trend[0].from_s;
  const length = trend[trend.length - 1].to_s - from;
  const most = Math.max(...trend.map((tenth) => Math.max(tenth.residual_px, tenth.residual_refined_px)), 1e-6);
  const steps = (key) => trend.flatMap((tenth) => [tenth.from_s, tenth.to_s].map((t) =>
    `${(((t - from) / length) * kWidth).toFixed(1)},${((kHeight - 2) * (1 - tenth[key] / most) + 1).toFixed(1)}`)).join(' ');
  const words = `Residual over the recording: as given from ${px(trend[0].residual_px)} to ` +
    `${px(trend[trend.length - 1].residual_px)}, refined ${px(trend[0].residual_refined_px)} to ` +
    `${px(trend[trend.length - 1].residual_refined_px)}. Turned by ${trend[0].rotation_deg.toFixed(2)} to ` +
    `${trend[trend.length - 1].rotation_deg.toFixed(2)} degrees.`;
  const label = drawing('title', {});
  label.textContent = words;
  return drawing('svg', { class: 'trend', width: kWidth, height: kHeight, viewBox: `0 0 ${kWidth} ${kHeight}`, role: 'img', 'aria-label': words },
    label, drawing('polyline', { class: 'refined', points: steps('residual_refined_px') }),
    drawing('polyline', { class: 'given', points: steps('residual_px') }));
}

export class HealthLine {
  #shown = '';

  constructor() {
    this.host = element('section', { class: 'health', 'aria-label': 'Calibration', hidden: true });
  }

  /** @param files  as the server tells of them */
  show(files) {
    const judged = files.filter((file) => file.calibration_health);
    const key = JSON.stringify(judged.map((file) => file.calibration_health));
    if (key === this.#shown) return;
    this.#shown = key;
    this.host.hidden = judged.length === 0;
    this.host.replaceChildren(...judged.map(({ name, calibration_health: { verdict, text, trend } }) =>
      element('p', { class: verdict in kBadge ? verdict : 'unknown' },
        element('b', { class: 'badge' }, kBadge[verdict] ?? kBadge.unknown),
        element('span', {}, `${files.length > 1 ? `${name}: ` : ''}By what the cameras saw: ${text}.`),
        trendOf(trend))));
  }
}
