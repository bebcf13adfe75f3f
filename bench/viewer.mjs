// node --experimental-websocket bench/viewer.mjs ALGTRACK PACED_HOST CHROMIUM [RECORDING]
// What the viewer costs and how soon it shows: from InputStream in a host to the drawn picture,
// pictures a second, and, of a long RECORDING, how long it is read, what a jump to any moment takes
// and how much memory server and page need. Prints a line for each.
import { spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { loadavg, tmpdir } from 'node:os';
import { join } from 'node:path';
import { later, Viewer } from '../tests/web/viewer.mjs';

const [algtrack, host, chromium, recording] = process.argv.slice(2);
const folder = mkdtempSync(join(tmpdir(), 'viewer-bench-'));
const kObjects = 6;

function serve(...files) {
  const server = spawn(algtrack, ['view', '--no-browser', ...files], { stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((done) => server.stdout.once('data', (text) => done({ server, address: `${text}`.trim() })));
}

function quantiles(values) {
  values.sort((a, b) => a - b);
  const at = (share) => values[Math.min(Math.ceil(share * values.length), values.length) - 1];
  return `median ${at(0.5).toFixed(1)}, 95 % ${at(0.95).toFixed(1)}, 99 % ${at(0.99).toFixed(1)}, largest ${at(1).toFixed(1)} ms of ${values.length}`;
}

/** The stamps of the host, and those of the next picture behind each drawing. */
async function latency(commitMs) {
  const file = join(folder, `live-${commitMs}.algrec`);
  const { server, address } = await serve('--follow', file);
  const viewer = await Viewer.start(chromium, address, { width: 1280, height: 900 });
  await viewer.evaluate(`window.drawn = [];
    document.addEventListener('drawn', ({ detail }) => requestAnimationFrame(() =>
      window.drawn.push([detail.frame, 1000 * (performance.timeOrigin + performance.now())])))`);
  const writer = spawn(host, [file, '25', `${commitMs}`], { stdio: ['ignore', 'pipe', 'pipe'] });
  let stamps = '';
  let said = '';
  writer.stdout.on('data', (text) => { stamps += text; });
  writer.stderr.on('data', (text) => { said += text; });
  await new Promise((done) => writer.on('exit', done));
  await later(1000);
  const drawn = await viewer.evaluate('window.drawn');
  await viewer.close();
  server.kill('SIGINT');
  const packets = stamps.trim().split('\n').map((line) => line.split(' ').map(Number));
  // The page begins to follow within its first second or two.
  const late = [];
  let next = 0;
  for (const [packet, at] of packets.slice(300)) {
    while (next < drawn.length && (drawn[next][0] < packet || drawn[next][1] < at)) ++next;
    if (next < drawn.length) late.push((drawn[next][1] - at) / 1000);
  }
  console.log(`commit every ${commitMs} ms: InputStream to picture: ${quantiles(late)}`);
  console.log(`  the host: ${said.trim()}`);
}

/** As above, but to a client's socket: what the renderer has no part in. */
async function wire(commitMs) {
  const file = join(folder, `wire-${commitMs}.algrec`);
  const { server, address } = await serve('--follow', file);
  const socket = new WebSocket(address.replace('http', 'ws').replace('/?', '/live?'));
  await new Promise((done) => { socket.onopen = done; });
  const came = new Map();
  socket.onmessage = ({ data }) => {
    const at = 1000 * (performance.timeOrigin + performance.now());
    for (const { frame } of JSON.parse(data).frames ?? []) if (!came.has(frame)) came.set(frame, at);
  };
  socket.send(JSON.stringify({ op: 'live', file: 0, from: 0 }));
  const writer = spawn(host, [file, '12', `${commitMs}`], { stdio: ['ignore', 'pipe', 'ignore'] });
  let stamps = '';
  writer.stdout.on('data', (text) => { stamps += text; });
  await new Promise((done) => writer.on('exit', done));
  await later(500);
  const packets = stamps.trim().split('\n').map((line) => line.split(' ').map(Number));
  const late = packets.filter(([packet]) => came.has(packet)).map(([packet, at]) => (came.get(packet) - at) / 1000);
  console.log(`commit every ${commitMs} ms: InputStream to socket: ${quantiles(late)}, of ${packets.length} packets`);
  socket.close();
  server.kill('SIGINT');
}

async function rate(file) {
  const { server, address } = await serve(file);
  const viewer = await Viewer.start(chromium, `${address}#t=1`, { width: 1280, height: 900 });
  await viewer.untilPacket('packet > 0');
  await viewer.evaluate(`window.pictures = 0;
    document.addEventListener('drawn', () => { ++window.pictures; })`);
  await viewer.press(' ');
  // First as the page chose, then the other way.
  for (let way = 0; way < 2; ++way) {
    const renderer = await viewer.evaluate('document.querySelector(".scene").dataset.renderer');
    const [begin, first] = [Date.now(), await viewer.evaluate('window.pictures')];
    await later(8000);
    const pictures = await viewer.evaluate('window.pictures') - first;
    console.log(`playing ${kObjects} objects, 1280 x 900, ${way ? 'not ' : ''}chosen: ${renderer}: ${(pictures / ((Date.now() - begin) / 1000)).toFixed(1)} pictures a second`);
    await viewer.press('g');
  }
  await viewer.close();
  server.kill('SIGINT');
}

const memoryOf = (pid, what) => Number(new RegExp(`${what}:\\s+(\\d+)`).exec(readFileSync(`/proc/${pid}/status`, 'utf8'))[1]) / 1024;

async function longRecording(file) {
  const began = Date.now();
  const { server, address } = await serve(file);
  const viewer = await Viewer.start(chromium, address, { width: 1280, height: 900 });
  await viewer.until('/packets/.test(document.querySelector(".status").textContent)', 'all is read', 600000);
  console.log(`read: ${((Date.now() - began) / 1000).toFixed(1)} s, ${await viewer.text('.status')}`);
  await viewer.press('0');
  await later(1500);
  // To the moment itself, and to the trails, whose packets come behind it.
  await viewer.evaluate(`window.seeks = { moment: [], whole: [] };
    let begin = 0;
    let before = -1;
    let shown = -1;
    let waiting = [];
    document.querySelector('.timeline canvas').addEventListener('pointerdown', () => {
      [begin, before, waiting] = [performance.now(), shown, ['moment', 'whole']];
    }, true);
    document.addEventListener('drawn', ({ detail }) => {
      shown = detail.frame;
      if (shown < 0 || shown === before) return;
      const reached = waiting.filter((what) => what === 'moment' || detail.whole);
      waiting = waiting.filter((what) => !reached.includes(what));
      requestAnimationFrame(() => { for (const what of reached) window.seeks[what].push(performance.now() - begin); });
    });`);
  const { x, y, width } = await viewer.box('.timeline canvas');
  for (let i = 0; i < 60; ++i) {
    const at = x + 12 + ((i * 37) % 100) / 100 * (width - 24);
    await viewer.mouse(['mousePressed', at, y + 45, true], ['mouseReleased', at, y + 45, false]);
    await later(400);
  }
  const { moment, whole } = await viewer.evaluate('window.seeks');
  console.log(`jump to any moment: ${quantiles(moment)}`);
  console.log(`  with the trails: ${quantiles(whole)}`);
  for (let i = 0; i < 4; ++i) await viewer.press('.');
  await viewer.press('Home');
  await viewer.press(' ');
  await later(20000);
  const { usedSize } = await viewer.browser.send('Runtime.getHeapUsage');
  console.log(`memory: server ${memoryOf(server.pid, 'VmRSS').toFixed(0)} MB, at most ${memoryOf(server.pid, 'VmHWM').toFixed(0)} MB; page ${(usedSize / 2 ** 20).toFixed(0)} MB of JavaScript`);
  await viewer.close();
  server.kill('SIGINT');
}

try {
  console.log(`load of this machine at the beginning: ${loadavg().map((load) => load.toFixed(1)).join(', ')}`);
  for (const commitMs of [250, 20, 5]) {
    await latency(commitMs);
    if (globalThis.WebSocket) await wire(commitMs);
  }
  await rate(join(folder, 'live-250.algrec'));
  if (recording) await longRecording(recording);
  console.log(`and at the end: ${loadavg().map((load) => load.toFixed(1)).join(', ')}`);
} finally {
  rmSync(folder, { recursive: true, force: true });
}
