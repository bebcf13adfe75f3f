import 'uplot/dist/uPlot.min.css';
import '../common/style.css';
import './style.css';
import { element } from '../common/dom.js';
import { count, plural, seconds } from '../common/format.js';
import { Frames } from './frames.js';
import { ImagesView } from './images.js';
import { HealthLine } from './health.js';
import { helpDialog, listen } from './keys.js';
import { Plots } from './plots.js';
import { kMostTrail, SceneView } from './scene.js';
import { Source } from './source.js';
import { FrameTable } from './table.js';
import { Timeline } from './timeline.js';

const kSpeeds = [0.05, 0.1, 0.25, 0.5, 1, 2, 5, 10, 20];
const kTrails = [0, 1, 3, 10];
const kSlowMs = 120; // between two updates of tables and charts while time goes on
const kFirstWindow = 30; // s
const kMostAhead = 2048; // packets that are fetched before they are played

const source = new Source();
const state = {
  files: [], t: 0, playing: false, speed: 1, live: false, loop: null, selected: null, pointed: null,
  raw: true, filtered: true, estimated: true, truth: true, bodies: true, trail: 3, heat: false, hidden: new Set(), log: [],
};
let frames = [];
let series = [];
let restored = null; // what the address asks for, until there is something to show

// ---- the parts of the page

const scene = new SceneView({ onObject: select });
const images = new ImagesView({ onPoint: point });
const timeline = new Timeline({ onTime: scrub, onWindow: windowChanged, onLoop: loopChanged, onHover: hover });
const plots = new Plots({ onZoom: (from, to) => timeline.setWindow(from, to), onChoice: drawPlots });
const ends = new FrameTable({ onPoint: point, onObject: select });
const health = new HealthLine();
const messages = element('section', { class: 'messages', 'aria-label': 'Messages' });
const names = element('h1', {});
const status = element('span', { class: 'status', role: 'status' });
const moment = element('output', { class: 'moment' });
const note = element('p', { class: 'toast', role: 'alert', hidden: true });

function button(text, title, run, more = {}) {
  return element('button', { type: 'button', title, 'aria-label': title, onclick: run, ...more }, text);
}
function choice(label, values, text, value, run) {
  const select = element('select', { 'aria-label': label, onchange: () => run(Number(select.value)) },
    values.map((v) => element('option', { value: v, selected: v === value }, text(v))));
  return select;
}
const playButton = button('▶', 'Play or stop (space)', togglePlay, { class: 'play' });
const liveButton = button('Live', 'Stay at the live edge (l)', () => setLive(!state.live), { class: 'toggle' });
const loopButton = button('Loop', 'Loop the window, or end the loop (o)', toggleLoop, { class: 'toggle' });
const speedChoice = choice('Speed', kSpeeds, (v) => `${v} ×`, 1, (v) => { state.speed = v; });
const trailChoice = choice('Trails', kTrails, (v) => (v ? `trail ${v} s` : 'no trail'), 3, (v) => { state.trail = v; for (const f of frames) f.prepare(f.index, 64, trailFrames()); show(); });
const kToggles = { raw: 'Positions as delivered (r)', filtered: 'Filtered positions (v)',
  estimated: 'By the estimator, as it would have been live (u)', truth: 'Where there is truth (t)', bodies: 'Bodies of markers (m)',
  heat: 'Where blobs were in this window of time (h)' };
const toggles = Object.fromEntries(Object.entries(kToggles).map(([key, title]) => [key,
  button(key === 'heat' ? 'heat map' : key, title, () => toggle(key), { class: 'toggle' })]));
const objectButtons = element('span', { class: 'group', role: 'group', 'aria-label': 'Objects' });
const kEventChoices = [['', 'any event'], ['gap', 'gap'], ['jump', 'jump'], ['outlier', 'outlier'], ['corrupt', 'corrupt packet'], ['message', 'message'], ['query', 'query']];
const eventChoice = element('select', { 'aria-label': 'Which events' },
  kEventChoices.map(([value, text]) => element('option', { value }, text)));
const save = element('select', { 'aria-label': 'Save', onchange: () => { saveAs(save.value); save.value = ''; } },
  [['', 'Save…'], ['png', 'picture of the scene'], ['csv', 'window as CSV'], ['algrec', 'window as a recording'], ['link', 'copy the link']]
    .map(([value, text]) => element('option', { value }, text)));

document.getElementById('viewer').append(
  element('header', {}, element('div', { class: 'title' }, names, status),
    element('div', { class: 'group' }, Object.values(toggles), trailChoice, objectButtons),
    element('div', { class: 'group' }, save, button('Keys', 'Which keys do what (?)', () => help.showModal()),
      button('◐', 'Light or dark', switchTheme, { class: 'theme' }))),
  health.host,
  element('div', { class: 'top' }, scene.host, images.host),
  element('div', { class: 'time' },
    element('div', { class: 'transport' },
      button('|◂', 'Previous event ([)', () => jump(-1)), button('◂', 'One frame back (←)', () => step(-1)), playButton,
      button('▸', 'One frame on (→)', () => step(1)), button('▸|', 'Next event (])', () => jump(1)),
      eventChoice, speedChoice, loopButton, liveButton, moment),
    timeline.host),
  element('div', { class: 'bottom' }, plots.host, element('div', { class: 'side' }, ends.host, messages)),
  note);

// ---- keys

const pan = (share) => timeline.setWindow(timeline.window.from + share * (timeline.window.to - timeline.window.from),
  timeline.window.to + share * (timeline.window.to - timeline.window.from));
const actions = [
  { keys: [' '], text: 'play or stop', run: togglePlay },
  { keys: ['ArrowLeft'], shift: false, text: 'one frame back', run: () => step(-1) },
  { keys: ['ArrowRight'], shift: false, text: 'one frame on', run: () => step(1) },
  { keys: ['ArrowLeft'], shift: true, text: 'ten frames back', run: () => step(-10) },
  { keys: ['ArrowRight'], shift: true, text: 'ten frames on', run: () => step(10) },
  { keys: ['['], text: 'previous event', run: () => jump(-1) },
  { keys: [']'], text: 'next event', run: () => jump(1) },
  { keys: ['n'], text: 'which events [ and ] go to', run: () => cycle(eventChoice) },
  { keys: ['Home'], text: 'the beginning', run: () => go(timeline.whole.from) },
  { keys: ['End'], text: 'the end', run: () => go(timeline.whole.to) },
  { keys: [','], text: 'slower', run: () => changeSpeed(-1) },
  { keys: ['.'], text: 'faster', run: () => changeSpeed(1) },
  { keys: ['l'], text: 'stay at the live edge', run: () => setLive(!state.live) },
  { keys: ['o'], text: 'loop the window, or end the loop', run: toggleLoop },
  { keys: ['+', '='], text: 'zoom into time', run: () => timeline.zoom(0.5) },
  { keys: ['-'], text: 'zoom out of time', run: () => timeline.zoom(2) },
  { keys: ['0'], text: 'all of time', run: () => timeline.setWindow(timeline.whole.from, timeline.whole.to) },
  { keys: ['<'], text: 'the window of time earlier', run: () => pan(-0.5) },
  { keys: ['>'], text: 'the window of time later', run: () => pan(0.5) },
  { keys: ['1', '2', '3', '4', '5', '6'], text: 'choose the first object, and so on',
    run: ({ key }) => select(state.selected === key - 1 ? null : key - 1) },
  { keys: ['x'], text: 'hide or show the chosen object', run: () => state.selected !== null && hide(state.selected) },
  { keys: ['b'], text: 'point at the next blob', run: nextBlob },
  { keys: ['r'], text: 'positions as delivered', run: () => toggle('raw') },
  { keys: ['v'], text: 'filtered positions', run: () => toggle('filtered') },
  { keys: ['u'], text: 'estimated positions', run: () => toggle('estimated') },
  { keys: ['t'], text: 'truth', run: () => toggle('truth') },
  { keys: ['m'], text: 'bodies of markers', run: () => toggle('bodies') },
  { keys: ['h'], text: 'heat map of blobs', run: () => toggle('heat') },
  { keys: ['f'], text: 'fit the scene', run: fit },
  { keys: ['g'], text: 'draw the scene by WebGL or without', run: () => say(scene.switchRenderer() === 'webgl' ? 'WebGL draws the scene' : 'the scene is drawn without WebGL') },
  { keys: ['c'], text: "the right camera's view", run: () => scene.cameraView() },
  { keys: ['a'], text: 'turn the scene left', run: () => scene.turn(-0.1, 0) },
  { keys: ['d'], text: 'turn the scene right', run: () => scene.turn(0.1, 0) },
  { keys: ['w'], text: 'turn the scene up', run: () => scene.turn(0, -0.08) },
  { keys: ['s'], text: 'turn the scene down', run: () => scene.turn(0, 0.08) },
  { keys: ['e'], text: 'nearer', run: () => scene.turn(0, 0, 0.87) },
  { keys: ['q'], text: 'farther', run: () => scene.turn(0, 0, 1.15) },
  { keys: ['p'], text: 'save a picture of the scene', run: () => saveAs('png') },
  { keys: ['k'], text: 'save the window of time as CSV', run: () => saveAs('csv') },
  { keys: ['K'], text: 'save the window of time as a recording', run: () => saveAs('algrec') },
  { keys: ['y'], text: 'copy the link to this moment', run: () => saveAs('link') },
  { keys: ['Escape'], text: 'choose nothing', run: () => { point(null); select(null); } },
  { keys: ['?'], text: 'this list', run: () => help.showModal() },
];
const help = helpDialog(actions);
listen(actions);

function cycle(list) {
  list.selectedIndex = (list.selectedIndex + 1) % list.length;
  say(`[ and ] go to: ${list.selectedOptions[0].textContent}`);
}

// ---- the files

const main = () => state.files[0];

/** Until a server that came back has been met: a step taken before would be undone by it. */
let lost = false;

async function meetServer() {
  const { files } = await source.ask('about');
  const anew = state.files.length === 0 || files.some((file, i) => file.name !== state.files[i]?.name || file.frames < state.files[i].frames);
  state.files = files;
  if (anew || frames.length === 0)
    frames = files.map((file, i) => new Frames(source, i, () => { laterShow(); }));
  frames.forEach((f, i) => { f.clear(); f.count = files[i].frames; });
  names.replaceChildren(...files.flatMap((file, i) => [i ? element('small', {}, ' with ') : null, file.name]).filter(Boolean));
  document.title = `${files.map((file) => file.name).join(' and ')} · viewer`;
  note.hidden = true;
  scene.setBodies(main().bodies);
  toggles.bodies.hidden = main().bodies.length === 0;
  takeState(files);
  if (main().rig) applyRig();
  if (restored === null) restored = readAddress();
  await begin();
  lost = false;
  showStatus();
  poll();
}

function applyRig() {
  scene.setRig(main().rig, main().depth_limit);
  images.setRig(main().rig);
  timeline.objects = main().objects;
  objectButtons.replaceChildren(...Array.from({ length: main().objects ?? 0 }, (_, i) =>
    button(`${i}`, `Show or hide object ${i}`, () => hide(i),
      { class: 'toggle object-key', style: `--swatch: var(--object-${i})`, 'aria-pressed': String(!state.hidden.has(i)) })));
}

let begun = false;
async function begin() {
  if (begun || !(main()?.frames > 0)) {
    if (begun) await seekAll(state.t);
    return;
  }
  const { from, to, state: kind } = main();
  if (kind === 'reading' && Math.max(restored?.t ?? 0, restored?.to ?? 0) > to) return; // not there yet
  begun = true;
  timeline.whole = { from, to };
  const wanted = restored ?? {};
  timeline.setWindow(wanted.from ?? from, wanted.to ?? Math.min(to, from + Math.max(kFirstWindow, 0.02 * (to - from))));
  if (wanted.object != null) state.selected = wanted.object;
  if (wanted.t == null && kind === 'live') return setLive(true);
  await go(wanted.t ?? from, false);
}

/** What the server says of the files again and again. */
function takeState(files) {
  const before = state.files;
  state.files = before.map((file, i) => ({ ...file, ...files[i] }));
  frames.forEach((f, i) => { f.count = Math.max(f.count, state.files[i].frames); });
  const { from, to } = main();
  if (from != null) {
    const wasWhole = timeline.window.from <= timeline.whole.from && timeline.window.to >= timeline.whole.to;
    const grew = to > timeline.whole.to;
    timeline.whole = { from, to: Math.max(to, from + 0.001) };
    if (begun && grew && wasWhole && to - from > 1) timeline.setWindow(from, to);
  }
  showStatus();
}

function showStatus() {
  health.show(state.files);
  const file = main();
  let text = '';
  let kind = '';
  if (!source.connected || lost) [text, kind] = ['the server is gone; waiting for it', 'lost'];
  else if (!file) text = '';
  else if (file.state === 'absent') [text, kind] = ['waiting for the file', 'live'];
  else if (file.state === 'reading') text = `reading, ${(100 * file.share).toFixed(0)} %`;
  else if (file.state === 'failed') [text, kind] = [file.problem, 'lost'];
  else if (file.state === 'live' && file.silent_s > 2) [text, kind] = [`live, but silent for ${seconds(file.silent_s)}`, 'lost'];
  else if (file.state === 'live') [text, kind] = [`live${state.live ? '' : `, ${seconds(Math.max(file.to - state.t, 0))} behind`}`, 'live'];
  else text = `${count(file.frames)} packets, ${seconds(file.to - file.from)}${file.dropped_calls > 0 ? `, ${plural(file.dropped_calls, 'call')} dropped` : ''}`;
  if (status.textContent !== text) status.textContent = text;
  status.className = `status ${kind}`;
}

let polling = null;
async function poll() {
  clearTimeout(polling);
  try {
    // Of a calibration that cannot be judged nothing comes.
    const judging = (file) => file.state === 'ended' && file.rig && !file.calibration_health;
    const busy = state.files.some((file) => ['absent', 'reading', 'live'].includes(file.state) || judging(file));
    const hadRig = Boolean(main().rig);
    const { files } = await source.ask(hadRig ? 'state' : 'about');
    const before = state.files.map((file) => file.frames);
    takeState(files);
    if (!hadRig && main().rig) applyRig();
    if (!begun) await begin();
    if (begun && files.some((file, i) => file.frames !== before[i]) || !timeline.overview) await loadOverview();
    if (busy) polling = setTimeout(poll, 700);
  } catch {
    polling = setTimeout(poll, 700);
  }
}

async function loadOverview() {
  if (!begun) return;
  const { series: all } = await source.ask('series', { file: 0, ...timeline.whole, columns: 600 });
  timeline.overview = all;
  const { series: shown, window } = timeline;
  if (state.live || !shown || (shown.to < window.to && main().to > shown.to)) await loadSeries();
  timeline.draw();
}

// ---- the window of time

let windowTimer = null;
function windowChanged() {
  if (windowTimer) return;
  windowTimer = setTimeout(async () => {
    windowTimer = null;
    await loadSeries();
    saveAddress();
  }, kSlowMs);
}

async function loadSeries() {
  if (!begun || !source.connected) return;
  const { from, to } = timeline.window;
  const margin = 0.02 * (to - from);
  try {
    const answers = await Promise.all(frames.map((_, file) =>
      source.ask('series', { file, from: from - margin, to: to + margin, columns: 1500 })));
    series = answers.map((answer) => answer.series);
    timeline.series = series[0];
    timeline.draw();
    drawPlots();
    if (state.heat) await loadHeat();
  } catch {
    // Asked again when the server is back.
  }
}

function drawPlots() {
  plots.show(series, timeline.window, { ...state, objects: main()?.objects ?? 0 });
  plots.setTime(state.t);
}

async function loadHeat() {
  const { heat } = await source.ask('heat', { file: 0, ...timeline.window });
  images.setHeat(state.heat ? heat : null);
}

// ---- moments

/** So many packets behind the moment the longest trail needs. */
function trailFrames() {
  const { frames: count, from, to } = main();
  const rate = to > from ? count / (to - from) : 0;
  return Math.min(Math.ceil(1.1 * state.trail * rate) + 8, kMostTrail);
}

async function seekAll(t) {
  await Promise.all(frames.filter((f) => f.count > 0).map((f) => f.seek(t)));
  for (const f of frames) f.prepare(f.index, 64, trailFrames());
  const frame = frames[0].get(frames[0].index);
  state.t = frame ? frame.t : t;
  show();
}

let wantedTime = null;
let seeking = false;
async function scrub(t) {
  leaveLive();
  wantedTime = t;
  timeline.t = t;
  timeline.draw();
  if (seeking) return;
  seeking = true;
  try {
    while (wantedTime !== null) {
      const next = wantedTime;
      wantedTime = null;
      await seekAll(next);
    }
    saveAddress();
  } catch {
    // The server is gone: the time stays.
  } finally {
    seeking = false;
  }
}

/** Goes to a time as a step that the browser's back button undoes. */
async function go(t, remember = true) {
  if (remember) pushAddress();
  leaveLive();
  await seekAll(t).catch(() => {});
  timeline.keepInView(state.t, 0.5);
  saveAddress();
}

function step(by) {
  leaveLive();
  state.playing = false;
  const [first] = frames;
  const next = Math.min(Math.max(first.index + by, 0), first.count - 1);
  const frame = first.get(next);
  first.index = next;
  first.prepare(next, 64, trailFrames());
  if (frame) {
    state.t = frame.t;
    for (const other of frames.slice(1)) other.seek(frame.t).then(show, () => {});
  }
  timeline.keepInView(state.t, 0.5);
  show();
  saveAddress();
}

async function jump(direction) {
  try {
    const { frame, t } = await source.ask('next', { file: 0, frame: frames[0].index, step: direction, events: eventChoice.value });
    if (frame == null) return say(`no ${direction > 0 ? 'later' : 'earlier'} ${eventChoice.selectedOptions[0].textContent}`);
    state.playing = false;
    await go(t);
    // Of frames of one time the one that was found.
    frames[0].index = frame;
    show();
  } catch (problem) {
    say(problem.message);
  }
}

function togglePlay() {
  if (!begun) return;
  if (state.live) leaveLive();
  state.playing = !state.playing;
  if (state.playing && frames[0].index >= frames[0].count - 1) go(state.loop?.from ?? main().from, false);
  show();
}

function changeSpeed(by) {
  const at = kSpeeds.indexOf(state.speed) + by;
  state.speed = kSpeeds[Math.min(Math.max(at, 0), kSpeeds.length - 1)];
  speedChoice.value = state.speed;
}

function toggleLoop() {
  state.loop = timeline.loop = state.loop ? null : { ...timeline.window };
  loopChanged();
  timeline.draw();
}

function loopChanged() {
  state.loop = timeline.loop;
  loopButton.setAttribute('aria-pressed', String(Boolean(state.loop)));
}

function setLive(on) {
  state.live = on;
  liveButton.setAttribute('aria-pressed', String(on));
  if (on) {
    state.playing = false;
    source.follow({ file: 0, from: Math.max(frames[0].count - 300, 0) });
  } else {
    source.follow(null);
  }
  showStatus();
}

function leaveLive() {
  if (state.live) setLive(false);
}

source.addEventListener('news', ({ detail }) => {
  takeState(detail.files);
  frames[detail.file].take(detail.frames);
  if (!state.live || frames[0].count === 0) return;
  frames[0].index = frames[0].count - 1;
  if (!fitted && frames[0].count > 20) {
    fitted = true;
    fit();
  }
  const frame = frames[0].get(frames[0].index);
  if (!frame) return;
  state.t = frame.t;
  frames.slice(1).forEach((f) => f.walkTo(frame.t));
  timeline.keepInView(state.t, 1);
  show();
});

/** All that is drawn around now. */
function fit() {
  const positions = [];
  const [first] = frames;
  for (let i = first.index - 400; i <= first.index + 60; ++i)
    for (const object of first.peek(i)?.objects ?? []) if (object.raw) positions.push(object.raw);
  scene.fit(positions);
}

// ---- what is shown

let wantsShow = false;
let fitted = false;
function laterShow() {
  if (!fitted && frames[0]?.current) {
    fitted = true;
    fit();
  }
  const frame = frames[0]?.peek(frames[0].index);
  if (frame && !state.playing && Math.abs(frame.t - state.t) > 1e-9 && !seeking) state.t = frame.t;
  show();
}

function show() {
  wantsShow = true;
}

let lastSlow = 0;
let pendingSlow = false;
function showNow(now) {
  const [first, second] = frames;
  if (!first) return;
  const frame = first.current;
  if (!frame && first.index >= 0 && first.count > 0) return; // on its way: what is shown stays
  const other = second?.current ?? null;
  scene.show(frames, { ...state });
  images.show(frame, other, state.hidden);
  playButton.textContent = state.playing ? '⏸' : '▶';
  timeline.t = state.t;
  timeline.hidden = state.hidden;
  pendingSlow = true;
  showSlow(now);
}

/** Tables and the time line: no faster than one can read while time goes on. */
function showSlow(now) {
  const moving = state.playing || state.live;
  if (!pendingSlow || (moving && now - lastSlow < kSlowMs)) return;
  pendingSlow = false;
  lastSlow = now;
  const frame = frames[0].current;
  moment.textContent = frame ? `${state.t.toFixed(3)} s · packet ${count(frame.frame)} · call ${count(frame.call)}` : '';
  timeline.draw();
  plots.setTime(state.t);
  ends.show(frame, frames[1]?.current, state, main().bodies);
  showStatus();
  showMessages();
}

let messagesAt = null;
async function showMessages() {
  const at = frames[0].index;
  if (at < 0 || messagesAt === at || (state.playing && state.speed > 1)) return;
  messagesAt = at;
  try {
    const { log } = await source.ask('log', { file: 0, frame: at, most: 40 });
    messages.replaceChildren(element('h2', {}, 'Messages until here'),
      log.lines.length === 0 ? element('p', { class: 'note' }, 'none')
        : element('ol', {}, log.lines.slice(0, 100).map((line) => element('li', {},
          element('button', { type: 'button', class: 'link', onclick: () => go(line.t) }, `${line.t.toFixed(3)} s`),
          element('span', { class: 'level' }, `level ${line.level}`), line.text.trim()))));
  } catch {
    messagesAt = null;
  }
}

let last = performance.now();
function tick(now) {
  const passed = Math.min(now - last, 250) / 1000;
  last = now;
  if (state.playing && begun) {
    let t = state.t + passed * state.speed;
    const [first] = frames;
    if (state.loop && t > state.loop.to) {
      seekAll(state.loop.from);
      t = state.loop.from;
    }
    for (const f of frames) {
      f.walkTo(t);
      f.prepare(f.index, Math.min(Math.max(128, 200 * state.speed), kMostAhead), trailFrames());
    }
    const waits = first.index + 1 < first.count && !first.peek(first.index + 1);
    if (first.index >= first.count - 1 && main().state !== 'live') {
      state.playing = false;
      t = first.current?.t ?? t;
      saveAddress();
    }
    state.t = waits ? Math.max(state.t, first.current?.t ?? 0) : t;
    timeline.keepInView(state.t, 0.05);
    wantsShow = true;
  }
  if (wantsShow) {
    wantsShow = false;
    showNow(now);
  }
  showSlow(now);
  if (scene.render()) {
    const frame = frames[0]?.peek(frames[0].index);
    scene.host.dispatchEvent(new CustomEvent('drawn', { bubbles: true, detail: { frame: frame?.frame ?? -1, call: frame?.call ?? -1, whole: frames.every((f) => !f.waits) } }));
  }
  requestAnimationFrame(tick);
}

function select(object) {
  state.selected = object;
  show();
  saveAddress();
}

function hide(object) {
  if (!state.hidden.delete(object)) state.hidden.add(object);
  applyRig();
  drawPlots();
  show();
}

function toggle(key) {
  state[key] = !state[key];
  paintToggles();
  if (key === 'heat') {
    if (state.heat) loadHeat().catch((problem) => say(problem.message));
    else images.setHeat(null);
  } else {
    drawPlots();
  }
  show();
}

function paintToggles() {
  for (const [key, node] of Object.entries(toggles)) node.setAttribute('aria-pressed', String(state[key]));
  for (const node of [liveButton, loopButton]) if (!node.hasAttribute('aria-pressed')) node.setAttribute('aria-pressed', 'false');
}

async function point(blob) {
  state.pointed = blob;
  ends.point(blob);
  const frame = frames[0]?.current;
  if (blob == null || !frame?.blobs[blob]) {
    images.setPoint(null);
    scene.showRay(null);
    return;
  }
  images.setPoint({ blob, line: null });
  try {
    const { ray } = await source.ask('ray', { file: 0, frame: frame.frame, blob });
    if (state.pointed !== blob) return;
    images.setPoint({ blob, line: ray.line });
    scene.showRay(ray.ray, `--object-${Math.min(frame.blobs[blob].id, 5)}`);
  } catch {
    // Without a calibration there is no ray.
  }
}

function nextBlob() {
  const blobs = frames[0]?.current?.blobs ?? [];
  if (blobs.length > 0) point(state.pointed == null ? 0 : (state.pointed + 1) % blobs.length);
}

let hovered = null; // {t, object}: what is pointed at in the time line
let explaining = false;
async function hover(t, object) {
  hovered = t == null ? null : { t, object };
  if (t == null) return timeline.say('');
  if (object == null || !begun) return timeline.say(seconds(t));
  if (explaining) return;
  explaining = true;
  while (hovered?.object != null) {
    const asked = hovered;
    timeline.say(await explained(asked));
    if (asked === hovered) break;
  }
  explaining = false;
}

/** Why an object is missing at a time, for the stretch around it. */
async function explained({ t, object }) {
  try {
    const { frame } = await source.ask('at', { file: 0, t });
    const { gap } = await source.ask('gap', { file: 0, frame, object });
    if (!gap.missing) return `${seconds(t)} · object ${object} is there`;
    return `object ${object} missing from ${gap.from.toFixed(3)} to ${gap.to.toFixed(3)} s, ` +
      `${plural(gap.last - gap.first + 1, 'packet')}${gap.cut ? ' or more' : ''}: ` +
      gap.reasons.map(({ text, packets }) => `${text} (${packets})`).join(', ');
  } catch {
    return '';
  }
}

let toastTimer = null;
function say(text) {
  note.textContent = text;
  note.hidden = false;
  clearTimeout(toastTimer);
  toastTimer = setTimeout(() => { note.hidden = true; }, 4000);
}

// ---- saving, and the address

function download(href, name) {
  const link = element('a', { href, download: name });
  document.body.append(link);
  link.click();
  link.remove();
}

async function saveAs(kind) {
  const { from, to } = timeline.window;
  const name = `${main()?.name.replace(/\.algrec$/, '')}-${state.t.toFixed(3)}`;
  if (kind === 'png') {
    scene.touch();
    scene.render();
    download(scene.canvas.toDataURL('image/png'), `${name}.png`);
  } else if (kind === 'csv' || kind === 'algrec') {
    const response = await fetch(source.partOf(kind, 0, from, to));
    if (!response.ok) return say((await response.text()).trim());
    const href = URL.createObjectURL(await response.blob());
    download(href, `${name}.${kind}`);
    setTimeout(() => URL.revokeObjectURL(href), 10000);
  } else if (kind === 'link') {
    saveAddress(true);
    await navigator.clipboard?.writeText(location.href).catch(() => {});
    say('The address of this moment is in the address bar, and copied where the browser allows it.');
  }
}

function addressNow() {
  const { from, to } = timeline.window;
  const object = state.selected == null ? '' : `&object=${state.selected}`;
  return `#t=${+state.t.toFixed(6)}${object}&from=${+from.toFixed(3)}&to=${+to.toFixed(3)}`;
}

function readAddress() {
  const given = new URLSearchParams(location.hash.slice(1));
  const number = (key) => {
    const value = given.has(key) ? Number(given.get(key)) : NaN;
    return Number.isFinite(value) ? value : undefined;
  };
  return { t: number('t'), object: number('object'), from: number('from'), to: number('to') };
}

let addressTimer = null;
function saveAddress(now = false) {
  clearTimeout(addressTimer);
  const write = () => { if (begun && !state.live) history.replaceState(null, '', addressNow()); };
  if (now) write();
  else addressTimer = setTimeout(write, 200);
}

function pushAddress() {
  if (!begun) return;
  clearTimeout(addressTimer);
  history.replaceState(null, '', addressNow());
  history.pushState(null, '', addressNow());
}

addEventListener('popstate', async () => {
  const wanted = readAddress();
  if (!begun || wanted.t === undefined) return;
  leaveLive();
  state.playing = false;
  state.selected = wanted.object ?? null;
  if (wanted.to > wanted.from) timeline.setWindow(wanted.from, wanted.to);
  await seekAll(wanted.t).catch(() => {});
});

// ---- light and dark

const dark = matchMedia('(prefers-color-scheme: dark)');
function setTheme(theme) {
  document.documentElement.dataset.theme = theme;
  scene.paint();
  images.draw();
  timeline.draw();
  drawPlots();
}
function switchTheme() {
  setTheme(document.documentElement.dataset.theme === 'dark' ? 'light' : 'dark');
}
dark.addEventListener('change', () => setTheme(dark.matches ? 'dark' : 'light'));
new ResizeObserver(() => { if (series.length > 0) drawPlots(); }).observe(plots.host);

setTheme(dark.matches ? 'dark' : 'light');
paintToggles();
source.addEventListener('open', () => meetServer().catch((problem) => say(problem.message)));
source.addEventListener('lost', () => {
  lost = true;
  showStatus();
});
requestAnimationFrame(tick);
