// node check_viewer.mjs CHECK CHROMIUM < facts
// One check of the viewer's page. Facts: {address, and what the check is to find}.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { Browser } from './browser.mjs';
import { isNear, later, Viewer } from './viewer.mjs';

const [name, chromium] = process.argv.slice(2);
const facts = JSON.parse(readFileSync(0, 'utf8').split('\n')[0]);

const checks = {
  /**
   * Seen from the right camera's place a position (x, y, z) lies x / -z focal lengths right of the
   * middle and y / -z above it; the focal length follows from the picture's height and angle.
   */
  async marker(viewer) {
    await viewer.untilPacket(`packet === ${facts.packet}`);
    for (const key of ['v', 't', 'u']) await viewer.press(key);
    await viewer.evaluate('(() => { const s = document.querySelector("select[aria-label=Trails]"); s.value = 0; s.dispatchEvent(new Event("change")); })()');
    await viewer.press('c');
    const { x, y, width, height } = await viewer.box('.scene canvas');
    const fov = Number(await viewer.evaluate('document.querySelector(".scene canvas").dataset.fov'));
    const focal = height / 2 / Math.tan((fov * Math.PI) / 360);
    const drawnBy = new Set();
    for (let way = 0; way < 2; ++way) {
      await viewer.press('g');
      drawnBy.add(await viewer.evaluate('document.querySelector(".scene").dataset.renderer'));
      let looked = 0;
      for (const [object, position] of Object.entries(facts.positions)) {
        const [px, py] = [x + width / 2 + (focal * position[0]) / -position[2],
          y + height / 2 - (focal * position[1]) / -position[2]];
        const colour = await viewer.colour(`--object-${object}`);
        const [found] = await viewer.coloursAt(px, py);
        assert.ok(isNear(found, colour), `object ${object} at ${px}, ${py}: ${found}, not ${colour}`);
        // Its edge is where the radius of 16 mm says: half of it is still marker, twice it is not.
        const r = (16 * focal) / -position[2];
        const [inside] = await viewer.coloursAt(px + r / 2, py);
        const [outside] = await viewer.coloursAt(px, py + 2 * r);
        assert.ok(isNear(inside, colour), `object ${object} is too small`);
        assert.ok(!isNear(outside, colour), `object ${object} is too large`);
        ++looked;
      }
      assert.ok(looked >= 3, 'objects to look at');
    }
    assert.deepEqual([...drawnBy].sort(), ['2d', 'webgl']);
  },

  /** Where a body's origin and markers are, its trail, and that its name is only a text. */
  async body(viewer) {
    await viewer.untilPacket(`packet === ${facts.packet}`);
    for (const key of ['r', 'v', 't', 'u']) await viewer.press(key);
    await viewer.press('c');
    const { x, y, width, height } = await viewer.box('.scene canvas');
    const fov = Number(await viewer.evaluate('document.querySelector(".scene canvas").dataset.fov'));
    const focal = height / 2 / Math.tan((fov * Math.PI) / 360);
    const pixelOf = ([a, b, c]) => [x + width / 2 + (focal * a) / -c, y + height / 2 - (focal * b) / -c];
    const colour = await viewer.colour('--body-0');
    const shows = async (place, radius) =>
      (await viewer.coloursAt(...pixelOf(place), radius)).some((found) => isNear(found, colour, 40));
    // A thin line is half paper: but what has more red than blue is of the body.
    const trail = async () => (await viewer.coloursAt(...pixelOf(facts.earlier), 2)).some(([r, , b]) => r - b > 50);
    const drawnBy = new Set();
    for (let way = 0; way < 2; ++way) {
      await viewer.press('g');
      drawnBy.add(await viewer.evaluate('document.querySelector(".scene").dataset.renderer'));
      assert.ok(await shows(facts.origin, 0), 'the origin');
      for (const [i, place] of facts.markers.entries()) assert.ok(await shows(place, 1), `marker ${i}`);
      // The frames behind this one may be on their way.
      for (let patience = 50; patience > 0 && !(await trail()); --patience) await later(100);
      assert.ok(await trail(), 'where its origin was half a second ago');
      await viewer.press('m');
      assert.ok(!(await shows(facts.origin, 3)), 'no body where it is switched off');
      assert.ok(!(await trail()), 'nor its trail');
      await viewer.press('m');
    }
    assert.deepEqual([...drawnBy].sort(), ['2d', 'webgl']);
    assert.match(await viewer.text('.body'), new RegExp(facts.says));
    assert.equal(await viewer.evaluate('document.querySelectorAll(".body b b").length'), 0);
  },

  /** Where the estimator has the objects, and what the packet and the plots say of it. */
  async estimated(viewer) {
    await viewer.untilPacket(`packet === ${facts.packet}`);
    const told = await viewer.evaluate('[...document.querySelectorAll(".object")].map((o) => o.textContent)');
    for (const [object, { sd, speed }] of Object.entries(facts.objects)) {
      const [, shownSd, shownSpeed] = /estimated .* ± ([\d.]+).mm, ([\d.,]+).mm\/s/.exec(told[object]) ?? assert.fail(told[object]);
      assert.ok(Math.abs(shownSd - sd) < 0.02 + 0.02 * sd, `${shownSd}, not ${sd}`);
      assert.ok(Math.abs(shownSpeed.replace(',', '') - speed) < 2 + 0.02 * speed, `${shownSpeed}, not ${speed}`);
    }
    for (const key of ['estimated_sd', 'speed', 'estimated_error'])
      await viewer.evaluate(`document.querySelector('.choices [data-key=${key}]').click()`);
    await viewer.until('document.querySelectorAll(".u-wrap canvas").length === 6', 'three more plots');
    for (const key of ['r', 'v', 't']) await viewer.press(key);
    await viewer.evaluate('(() => { const s = document.querySelector("select[aria-label=Trails]"); s.value = 0; s.dispatchEvent(new Event("change")); })()');
    await viewer.press('c');
    const { x, y, width, height } = await viewer.box('.scene canvas');
    const fov = Number(await viewer.evaluate('document.querySelector(".scene canvas").dataset.fov'));
    const focal = height / 2 / Math.tan((fov * Math.PI) / 360);
    const colour = await viewer.colour('--estimated');
    const shows = async ([a, b, c]) => isNear(
      (await viewer.coloursAt(x + width / 2 + (focal * a) / -c, y + height / 2 - (focal * b) / -c))[0], colour, 12);
    for (let way = 0; way < 2; ++way) {
      await viewer.press('g');
      for (const { position } of Object.values(facts.objects)) assert.ok(await shows(position), `${position}`);
      await viewer.press('u');
      for (const { position } of Object.values(facts.objects)) assert.ok(!(await shows(position)), 'switched off');
      await viewer.press('u');
    }
  },

  /** What the blobs say of each file's calibration comes when it is known. */
  async health(viewer) {
    await viewer.untilPacket('packet >= 0');
    await viewer.until(`document.querySelectorAll('.health p').length === ${facts.told.length}`, 'the calibrations are judged');
    const lines = await viewer.evaluate(`[...document.querySelectorAll('.health p')].map((line) => ({
      verdict: line.className, badge: line.querySelector('.badge').textContent, text: line.textContent,
      given: line.querySelector('.given').getAttribute('points').split(' ').map((point) => point.split(',').map(Number)),
      words: line.querySelector('svg').getAttribute('aria-label') }))`);
    facts.told.forEach(({ verdict, text, trend }, i) => {
      assert.equal(lines[i].verdict, verdict);
      assert.ok(lines[i].text.includes(text), `${lines[i].text}, not ${text}`);
      assert.equal(lines[i].given.length, 2 * trend.length, 'a step for each tenth');
      assert.ok(lines[i].words.includes(`as given from ${trend[0].residual_px.toPrecision(2)} px`), lines[i].words);
    });
    // The rig that moves: its steps rise from the bottom to the top, whose y is 1.
    const { given } = lines[1];
    assert.ok(given[0][1] > 15 && Math.abs(given.at(-1)[1] - 1) < 0.1, `${given}`);
    for (const width of [1300, 390]) {
      await viewer.browser.show({ width, height: 900 });
      await viewer.settle();
      await viewer.assertFits(`${width} px`);
    }
  },

  /** A browser without WebGL shows the scene as well. */
  async plain(viewer) {
    await viewer.browser.send('Page.addScriptToEvaluateOnNewDocument', { source: `{
      const { getContext } = HTMLCanvasElement.prototype;
      HTMLCanvasElement.prototype.getContext = function (kind, ...more) {
        return kind.startsWith('webgl') ? null : getContext.call(this, kind, ...more);
      };
    }` });
    await viewer.browser.open('about:blank');
    await viewer.browser.open(viewer.address);
    await viewer.untilPacket('packet > 0');
    const { x, y, width, height } = await viewer.box('.scene canvas');
    const seen = await viewer.coloursAt(x + width / 2, y + height / 2, Math.floor(height / 2) - 4);
    for (const object of [0, 1, 2, 3, 4, 5]) {
      const colour = await viewer.colour(`--object-${object}`);
      assert.ok(seen.filter((c) => isNear(c, colour)).length > 30, `object ${object}`);
    }
  },

  /** Blobs stand where the packet says, and end as the command says. */
  async images(viewer) {
    await viewer.untilPacket(`packet === ${facts.packet}`);
    for (const { camera, id, x, y } of facts.blobs) {
      const box = await viewer.evaluate(`(() => {
        const { x, y, width } = document.querySelectorAll('.image canvas')[${camera}].getBoundingClientRect();
        return { x, y, scale: width / ${facts.width} };
      })()`);
      const [found] = await viewer.coloursAt(box.x + x * box.scale, box.y + y * box.scale);
      const colour = await viewer.colour(`--object-${id}`);
      assert.ok(isNear(found, colour), `blob of ${id} in image ${camera}: ${found}, not ${colour}`);
      // Its line runs through its partner in the other image.
      await viewer.mouse(['mouseMoved', box.x + x * box.scale, box.y + y * box.scale, false]);
      await viewer.until('document.querySelector("tr.pointed")', 'the row of the blob');
      assert.match(await viewer.text('tr.pointed'), new RegExp(`${camera ? 'right' : 'left'}${id}`));
    }
    const missing = await viewer.evaluate('[...document.querySelectorAll(".object.missing")].map((o) => o.textContent)');
    assert.deepEqual(missing, facts.missing);
    const rows = await viewer.evaluate('document.querySelectorAll(".ends tbody tr").length');
    assert.equal(rows, facts.rows);
  },

  async time(viewer) {
    await viewer.untilPacket('packet === 0');
    // By mouse: the middle of the time line is the middle of the window of time.
    const { x, y, width } = await viewer.box('.timeline canvas');
    await viewer.mouse(['mouseMoved', x + 20, y + 40, false], ['mousePressed', x + 20, y + 40, true],
      ['mouseMoved', x + width / 2, y + 40, true], ['mouseReleased', x + width / 2, y + 40, false]);
    await viewer.until(`Math.abs(parseFloat(document.querySelector('.moment').textContent) - ${facts.seconds / 2}) < 0.02 * ${facts.seconds}`, 'the middle');
    // Who points at a gap reads why: object 1 is hidden from 4 to 5.5 s.
    const { x: left, y: top, width: wide } = await viewer.box('.timeline canvas');
    await viewer.mouse(['mouseMoved', left + 10 + (wide - 20) * 0.47, top + 26 + 4 + 13 + 5, false]);
    await viewer.until('/^object 1 missing from 4\\.0\\d+ to 5\\.\\d+ s.*no camera saw id 1/.test(document.querySelector(".tip").textContent)', 'the reasons of a gap');
    const middle = await viewer.moment();
    await viewer.press('ArrowRight');
    assert.equal((await viewer.moment()).packet, middle.packet + 1);
    await viewer.press('ArrowLeft', 8);
    await viewer.untilPacket(`packet === ${middle.packet - 9}`);
    // Events: the corrupt packets that the command lists, one after the other.
    await viewer.press('Home');
    await viewer.untilPacket('packet === 0');
    for (let i = 0; i < 4; ++i) await viewer.press('n');
    for (const packet of facts.corrupt) {
      await viewer.press(']');
      await viewer.untilPacket(`packet === ${packet}`);
    }
    await viewer.press('[');
    await viewer.untilPacket(`packet === ${facts.corrupt.at(-2)}`);
    // The address holds the moment; back goes where one was.
    await viewer.press('2');
    await later(400);
    const link = await viewer.evaluate('location.href');
    assert.match(link, /#t=[\d.]+&object=1&/);
    await viewer.evaluate('history.back()');
    await viewer.untilPacket(`packet === ${facts.corrupt.at(-1)}`, 'back');
    await viewer.browser.open('about:blank');
    await viewer.browser.open(link);
    await viewer.untilPacket(`packet === ${facts.corrupt.at(-2)}`, 'the link');
    assert.equal(await viewer.evaluate('document.querySelectorAll(".object")[1].getAttribute("aria-pressed")'), 'true');
  },

  async playing(viewer) {
    await viewer.untilPacket('packet === 0');
    await viewer.press(' ');
    await viewer.untilPacket('packet > 60', 'it plays');
    await viewer.press(' ');
    const stopped = await viewer.moment();
    await later(500);
    assert.deepEqual(await viewer.moment(), stopped, 'nothing moves when it is stopped');
    // At 20 times the speed, to the end, where it stops.
    for (let i = 0; i < 4; ++i) await viewer.press('.');
    await viewer.press(' ');
    await viewer.untilPacket(`packet === ${facts.packets - 1}`, 'the end');
    await viewer.until('document.querySelector(".play").textContent === "▶"', 'it stops at the end');
    // A loop of half a second is not left.
    await viewer.evaluate('(() => { const s = document.querySelector("select[aria-label=Speed]"); s.value = 1; s.dispatchEvent(new Event("change")); })()');
    await viewer.press('Home');
    await viewer.untilPacket('packet === 0');
    for (let i = 0; i < 5; ++i) await viewer.press('+');
    await viewer.press('o');
    await viewer.press(' ');
    const seen = [];
    for (let i = 0; i < 20; ++i) {
      await later(100);
      seen.push((await viewer.moment()).t);
    }
    assert.ok(Math.max(...seen) < facts.seconds / 8, `${seen}`);
    assert.ok(seen.some((t, i) => i > 0 && t < seen[i - 1]), `it begins again: ${seen}`);
  },

  /** All that keys say they do is heard, and each view has something coloured in it. */
  async keys(viewer) {
    await viewer.untilPacket('packet >= 0');
    await viewer.press('?');
    assert.equal(await viewer.evaluate('document.querySelector("dialog").open'), true);
    assert.ok(await viewer.evaluate('document.querySelectorAll("dialog kbd").length') > 30);
    await viewer.evaluate('document.querySelector("dialog").close()');
    for (const [key, label] of [['r', 'raw'], ['v', 'filtered'], ['t', 'truth'], ['u', 'estimated'], ['m', 'bodies'], ['h', 'heat map'], ['o', 'Loop']]) {
      const pressed = `[...document.querySelectorAll('.toggle')].find((b) => b.textContent === '${label}').getAttribute('aria-pressed')`;
      const before = await viewer.evaluate(pressed);
      await viewer.press(key);
      assert.notEqual(await viewer.evaluate(pressed), before, key);
      await viewer.press(key);
      assert.equal(await viewer.evaluate(pressed), before, key);
    }
    await viewer.press('b');
    await viewer.until('document.querySelector("tr.pointed")');
    for (const key of 'fcadwseq+-0<>,.') await viewer.press(key);
    const unnamed = await viewer.evaluate('[...document.querySelectorAll("canvas")].filter((c) => !c.closest("[aria-label]")).length');
    assert.equal(unnamed, 0, 'every picture has words for those who do not see it');
  },

  async looks(viewer) {
    for (const dark of [false, true])
      for (const width of [1440, 1000, 390]) {
        await viewer.browser.show({ dark, width, height: 900, scale: width === 390 ? 2 : 1 });
        await viewer.browser.open('about:blank');
        await viewer.browser.open(viewer.address);
        await viewer.untilPacket('packet > 0');
        await viewer.until('document.querySelectorAll(".u-wrap canvas").length === 3', 'three plots');
        await viewer.settle();
        const where = `${dark ? 'dark' : 'light'}, ${width} px`;
        await viewer.assertFits(where);
        assert.equal(await viewer.evaluate('document.documentElement.dataset.theme'), dark ? 'dark' : 'light');
        const coloured = await viewer.evaluate(`[...document.querySelectorAll('.image canvas, .timeline canvas, .u-wrap canvas')].map((canvas) => {
          const copy = new OffscreenCanvas(canvas.width, canvas.height);
          const context = copy.getContext('2d', { willReadFrequently: true });
          context.drawImage(canvas, 0, 0);
          const { data } = context.getImageData(0, 0, copy.width, copy.height);
          let n = 0;
          for (let i = 0; i < data.length; i += 4)
            if (data[i + 3] > 128 && Math.max(data[i], data[i + 1], data[i + 2]) - Math.min(data[i], data[i + 1], data[i + 2]) > 70) ++n;
          return n;
        })`);
        assert.ok(coloured.length === 6 && coloured.every((n) => n > 40), `${where}: ${coloured}`);
      }
    // Contrast of what is written, by the formula of the accessibility guidelines.
    for (const theme of ['light', 'dark']) {
      await viewer.evaluate(`document.documentElement.dataset.theme = '${theme}'`);
      const light = (c) => c.map((v) => v / 255).map((v) => (v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4))
        .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
      for (const paper of ['--card', '--paper', '--sunken'])
        for (const ink of ['--ink', '--ink-soft']) {
          const [a, b] = [light(await viewer.colour(ink)), light(await viewer.colour(paper))].sort((p, q) => q - p);
          assert.ok((a + 0.05) / (b + 0.05) >= 4.5, `${theme}: ${ink} on ${paper}: ${(a + 0.05) / (b + 0.05)}`);
        }
    }
  },

  async texts(viewer) {
    await viewer.untilPacket('packet > 0');
    await viewer.press('End');
    await viewer.until(`document.querySelector('.messages').textContent.includes(${JSON.stringify(facts.text)})`, 'the message');
    assert.ok((await viewer.text('h1')).includes(facts.file));
    assert.equal(await viewer.evaluate('document.querySelectorAll(".messages img, .messages script, h1 b").length'), 0);
    assert.notEqual(await viewer.evaluate('document.title'), 'taken');
  },

  async two(viewer) {
    await viewer.untilPacket('packet > 0');
    assert.ok((await viewer.text('h1')).includes('with'));
    await viewer.until(`[...document.querySelectorAll('.object')].some((o) => o.textContent.includes("from the other file's"))`);
    const apart = await viewer.evaluate(`[...document.querySelectorAll('.object')].map((o) => parseFloat(/([\\d.]+).mm from the other/.exec(o.textContent)?.[1]))`);
    facts.apart.forEach((expected, i) => {
      if (expected != null) assert.ok(Math.abs(apart[i] - expected) < 0.02 + 0.01 * expected, `object ${i}: ${apart[i]}, not ${expected}`);
    });
    // The second file's packet has its table of ends as well.
    assert.match(await viewer.text('.second'), new RegExp(`packet ${facts.second.packet} at`));
    const rows = await viewer.evaluate(`[...document.querySelectorAll('.second ~ .scroll tbody tr')].map((row) =>
      [...row.cells].slice(1, 7).map((cell) => cell.textContent))`);
    assert.deepEqual(rows.map(([camera, id, x, y]) => [camera, Number(id), Number(x), Number(y)]), facts.second.blobs);
    const ended = rows.map((row) => row[5]).filter((text) => text === 'delivered').length;
    assert.equal(ended, facts.second.delivered);
  },

  /** A file that another process writes: the page says that it waits, that it is live, and ends. */
  async follow(viewer) {
    await viewer.until('document.querySelector(".status").textContent.includes("waiting for the file")', 'waiting');
    process.stdout.write('begin\n');
    await viewer.until('/^live/.test(document.querySelector(".status").textContent)', 'live');
    const first = await viewer.untilPacket('packet > 5');
    await viewer.untilPacket(`packet > ${first.packet + 60}`, 'new packets');
    await viewer.press('ArrowLeft');
    const stopped = await viewer.moment();
    await viewer.until('/behind/.test(document.querySelector(".status").textContent)', 'behind');
    assert.deepEqual(await viewer.moment(), stopped, 'who looks back is not moved');
    await viewer.press('l');
    await viewer.untilPacket(`packet > ${stopped.packet + 20}`, 'live again');
    await viewer.until('/packets/.test(document.querySelector(".status").textContent)', 'the end', 60000);
    await viewer.untilPacket(`packet === ${facts.packets - 1}`, 'the last packet');
  },

  async restart(viewer) {
    await viewer.untilPacket('packet === 450');
    process.stdout.write('stop\n');
    await viewer.until('document.querySelector(".status").textContent.includes("the server is gone")');
    process.stdout.write('start\n');
    await viewer.until('!document.querySelector(".status").textContent.includes("gone")', 'it is back');
    await viewer.press('ArrowRight');
    await viewer.untilPacket('packet === 451');
    // The browser itself notes the connection that was refused meanwhile.
    viewer.problems = viewer.problems.filter((text) => !/WebSocket connection to .* failed/.test(text));
  },

  /** Another page in the same browser learns nothing. */
  async stranger() {
    const browser = await Browser.start(chromium);
    try {
      await browser.open(facts.stranger);
      const { page, socket, frame } = await browser.evaluate(`(async () => {
        const page = await fetch(${JSON.stringify(facts.address)}).then((r) => r.text(), (e) => 'refused');
        const socket = await new Promise((done) => {
          const s = new WebSocket(${JSON.stringify(facts.address)}.replace('http', 'ws').replace('/?', '/live?'));
          s.onopen = () => done('open');
          s.onclose = () => done('refused');
        });
        const frame = document.createElement('iframe');
        frame.src = ${JSON.stringify(facts.address)};
        document.body.append(frame);
        await new Promise((done) => setTimeout(done, 1500));
        let read = 'refused';
        try { read = frame.contentDocument ? frame.contentDocument.body.innerText : 'refused'; } catch { /* refused */ }
        return { page, socket, frame: read };
      })()`);
      assert.deepEqual({ page, socket, frame }, { page: 'refused', socket: 'refused', frame: 'refused' });
    } finally {
      await browser.close();
    }
  },

  async saving(viewer) {
    await viewer.untilPacket('packet > 0');
    await viewer.browser.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: facts.folder, eventsEnabled: true });
    for (const key of ['p', 'k', 'K']) {
      await viewer.press(key, key === 'K' ? 8 : 0);
      await later(1200);
    }
    process.stdout.write('saved\n');
  },
};

if (name === 'stranger') {
  await checks.stranger();
} else {
  const viewer = await Viewer.start(chromium, facts.address, facts.view ?? { width: 1300, height: 950 });
  try {
    await checks[name](viewer);
    assert.deepEqual(viewer.problems, []);
  } finally {
    await viewer.close();
  }
}
