'use strict';
// The map of one camera pair, or of several side by side. The data are in the page.
(() => {
  const maps = JSON.parse(document.getElementById('data').textContent);
  const root = document.getElementById('map');
  const QUANTITIES = [
    ['standard deviation of z (depth)', 2, 'mm'],
    ['standard deviation of x', 0, 'mm'],
    ['standard deviation of y', 1, 'mm'],
    ['standard deviation of the distance', 3, 'mm'],
    ['blobs that the library pairs', 4, '%'],
  ];
  let quantity = QUANTITIES[0];
  let depthIndex = 0;

  const make = (tag, properties = {}, ...children) => {
    const element = Object.assign(document.createElement(tag), properties);
    element.append(...children);
    return element;
  };
  const figure = (value) => {
    if (!Number.isFinite(value)) return '–';
    const digits = value >= 100 ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3;
    return value.toFixed(digits);
  };
  // From dark blue over green to yellow: even steps of lightness, for every kind of eye.
  const STOPS = [[68, 1, 84], [59, 82, 139], [33, 145, 140], [94, 201, 98], [253, 231, 37]];
  const colour = (share) => {
    const at = Math.min(Math.max(share, 0), 1) * (STOPS.length - 1);
    const low = Math.min(Math.floor(at), STOPS.length - 2);
    const mix = STOPS[low].map((a, i) => Math.round(a + (STOPS[low + 1][i] - a) * (at - low)));
    return `rgb(${mix.join(',')})`;
  };
  const depths = [...new Set(maps.flatMap((map) => map.slices.map((s) => s.depth)))]
    .sort((a, b) => a - b);
  const sliceOf = (map) => map.slices.find((slice) => slice.depth === depths[depthIndex]);

  /// Smallest and largest value that is shown, the same for all maps so that they compare.
  const range = (slices) => {
    let low = Infinity, high = -Infinity;
    for (const slice of slices)
      for (const place of slice.places)
        if (place) {
          low = Math.min(low, place[quantity[1]]);
          high = Math.max(high, place[quantity[1]]);
        }
    return [low, high];
  };
  // Deviations span decades: their colours follow the logarithm.
  const shareOf = (value, [low, high]) => {
    if (!(high > low)) return 0;
    if (quantity[2] === '%' || !(low > 0)) return (value - low) / (high - low);
    return Math.log(value / low) / Math.log(high / low);
  };

  const prepared = (canvas, ratio) => {
    const width = canvas.clientWidth || 420;
    const scale = window.devicePixelRatio || 1;
    canvas.width = Math.round(width * scale);
    canvas.height = Math.round(width * ratio * scale);
    const context = canvas.getContext('2d');
    context.setTransform(scale, 0, 0, scale, 0, 0);
    context.clearRect(0, 0, width, width * ratio);
    context.font = '12px system-ui, sans-serif';
    context.fillStyle = getComputedStyle(document.body).color;
    return [context, width, width * ratio];
  };

  root.append(make('h1', { textContent: maps.length === 1 ? maps[0].rig : 'Camera pairs compared' }));
  root.append(make('p', { textContent:
    `Where both cameras see a marker of ${maps[0].marker_mm} mm and how exactly the library places ` +
    `it, if every coordinate of a blob has a noise of ${maps[0].noise_px} px: standard deviations ` +
    'of one triangulated point, before any smoothing. The right camera’s frame: x right, y down, ' +
    'z forward.' }));
  for (const map of maps) {
    const card = (value, text) => make('div', { className: 'card' },
      make('b', { textContent: value }), make('span', { textContent: text }));
    const at = (depth) => map.table.find((line) => line.depth_mm === depth);
    const cards = make('div', { className: 'cards' });
    if (maps.length > 1) cards.append(card(map.rig, 'camera pair'));
    cards.append(card(`${figure(map.volume_m3)} m³`, `seen by both, 0.25 to ${map.max_depth_mm / 1000} m`));
    cards.append(card(`${figure(map.baseline_mm)} mm`, 'baseline'));
    for (const depth of [1000, 2000, 3000])
      if (at(depth) && at(depth).width_mm > 0)
        cards.append(card(`${figure(at(depth).sd_z_mm)} mm`, `depth at ${depth / 1000} m, median`));
    root.append(cards);
  }

  const choice = make('select', { ariaLabel: 'quantity' });
  QUANTITIES.forEach(([name], i) => choice.append(make('option', { value: i, textContent: name })));
  const slider = make('input', { type: 'range', min: 0, max: depths.length - 1, step: 1,
    ariaLabel: 'depth of the slice' });
  const depthText = make('output');
  const scale = make('canvas', { className: 'scale' });
  const scaleText = make('span');
  root.append(make('h2', { textContent: 'A slice at one depth' }),
    make('div', { className: 'controls' }, choice,
      make('label', {}, 'depth ', slider, ' ', depthText), scale, scaleText));
  const slices = make('div', { className: 'pictures' });
  root.append(slices);
  root.append(make('h2', { textContent: 'The whole room' }),
    make('p', { textContent: 'Drag, or use the arrow keys, to turn. The cameras stand at the ' +
      'cross, and look along z.' }));
  const rooms = make('div', { className: 'pictures' });
  root.append(rooms);

  const views = maps.map((map) => {
    const slice = make('canvas', { ariaLabel: `slice of ${map.rig}` });
    const sliceText = make('figcaption');
    slices.append(make('figure', {}, slice, sliceText));
    const room = make('canvas', { className: 'turn', tabIndex: 0,
      ariaLabel: `the room that ${map.rig} sees` });
    rooms.append(make('figure', {}, room, make('figcaption', { textContent: map.rig })));
    const view = { map, slice, sliceText, room, yaw: 0.6, pitch: 0.35 };
    slice.addEventListener('pointermove', (event) => showPlace(view, event));
    slice.addEventListener('pointerleave', () => drawSlice(view));
    room.addEventListener('pointerdown', (event) => room.setPointerCapture(event.pointerId));
    room.addEventListener('pointermove', (event) => {
      if (!event.buttons) return;
      turnAll(event.movementX / 150, event.movementY / 150);
    });
    room.addEventListener('keydown', (event) => {
      const step = { ArrowLeft: [-0.1, 0], ArrowRight: [0.1, 0], ArrowUp: [0, -0.1], ArrowDown: [0, 0.1] }[event.key];
      if (!step) return;
      event.preventDefault();
      turnAll(...step);
    });
    return view;
  });

  /// All rooms turn together, so that they compare.
  function turnAll(yaw, pitch) {
    for (const view of views) {
      view.yaw += yaw;
      view.pitch = Math.min(Math.max(view.pitch + pitch, -1.5), 1.5);
      drawRoom(view);
    }
  }

  function frameOf(slice, width, height) {
    const size = Math.min(width / slice.columns, height / slice.rows);
    return { size, x: (width - size * slice.columns) / 2, y: (height - size * slice.rows) / 2 };
  }

  function drawSlice(view) {
    const slice = sliceOf(view.map);
    const [context, width, height] = prepared(view.slice, 0.75);
    if (!slice) {
      context.fillText('beyond the largest depth of this product type', 12, 24);
      view.sliceText.textContent = view.map.rig;
      return;
    }
    const limits = range(maps.map(sliceOf).filter(Boolean));
    const frame = frameOf(slice, width, height);
    slice.places.forEach((place, i) => {
      if (!place) return;
      context.fillStyle = colour(shareOf(place[quantity[1]], limits));
      context.fillRect(frame.x + frame.size * (i % slice.columns),
        frame.y + frame.size * Math.floor(i / slice.columns), frame.size + 0.5, frame.size + 0.5);
    });
    const seen = slice.places.filter(Boolean).map((place) => place[quantity[1]]).sort((a, b) => a - b);
    view.sliceText.textContent = seen.length === 0
      ? `${view.map.rig}: nothing is seen here`
      : `${view.map.rig}: median ${figure(seen[seen.length >> 1])} ${quantity[2]}, from ` +
        `${figure(seen[0])} to ${figure(seen[seen.length - 1])} ${quantity[2]}; ` +
        `${figure(slice.step * slice.columns / 1000)} m from edge to edge`;
    const bar = scale.getContext('2d');
    scale.width = 260;
    scale.height = 14;
    for (let x = 0; x < 260; ++x) {
      bar.fillStyle = colour(x / 259);
      bar.fillRect(x, 0, 1, 14);
    }
    scaleText.textContent = `${figure(limits[0])} to ${figure(limits[1])} ${quantity[2]}`;
  }

  function showPlace(view, event) {
    const slice = sliceOf(view.map);
    if (!slice) return;
    const frame = frameOf(slice, view.slice.clientWidth, view.slice.clientHeight);
    const column = Math.floor((event.offsetX - frame.x) / frame.size);
    const row = Math.floor((event.offsetY - frame.y) / frame.size);
    if (column < 0 || row < 0 || column >= slice.columns || row >= slice.rows) return;
    const place = slice.places[row * slice.columns + column];
    const where = `x ${Math.round(slice.left + slice.step * column)}, ` +
      `y ${Math.round(slice.top + slice.step * row)}, z ${slice.depth} mm`;
    view.sliceText.textContent = place
      ? `${where}: x ± ${figure(place[0])}, y ± ${figure(place[1])}, z ± ${figure(place[2])}, ` +
        `distance ± ${figure(place[3])} mm; ${place[4]} % paired`
      : `${where}: not seen, or refused`;
  }

  const deepest = depths[depths.length - 1];
  const farthest = (slice) => slice.places.map((place, i) => (place
    ? Math.hypot(slice.left + slice.step * (i % slice.columns),
      slice.top + slice.step * Math.floor(i / slice.columns), slice.depth - deepest / 2) : 0));
  /// Of all places from the middle that rooms turn about: within it they fit however they are turned.
  const radius = maps.flatMap((map) => map.slices.flatMap(farthest)).reduce((a, b) => Math.max(a, b), 1);

  function drawRoom(view) {
    const [context, width, height] = prepared(view.room, 0.75);
    const limits = range(maps.flatMap((map) => map.slices));
    const scaleTo = height * 0.48 / radius;
    const dot = Math.max(2, width / 300);
    const [cy, sy, cp, sp] = [Math.cos(view.yaw), Math.sin(view.yaw), Math.cos(view.pitch), Math.sin(view.pitch)];
    const project = (x, y, z) => {
      const depth = z - deepest / 2;
      const [u, w] = [cy * x + sy * depth, cy * depth - sy * x];
      return [width / 2 + scaleTo * u, height / 2 + scaleTo * (cp * y + sp * w), cp * w - sp * y];
    };
    const points = [];
    for (const slice of view.map.slices)
      slice.places.forEach((place, i) => {
        const column = i % slice.columns, row = Math.floor(i / slice.columns);
        if (!place || (column + row) % 3) return;
        points.push([...project(slice.left + slice.step * column, slice.top + slice.step * row, slice.depth),
          place[quantity[1]]]);
      });
    points.sort((a, b) => b[2] - a[2]);
    for (const [x, y, , value] of points) {
      context.fillStyle = colour(shareOf(value, limits));
      context.fillRect(x - dot / 2, y - dot / 2, dot, dot);
    }
    // The cross stands before all dots, on a rim of paper.
    const { color, backgroundColor } = getComputedStyle(document.body);
    const [ox, oy] = project(0, 0, 0);
    const ends = [[1, 0, 0, 'x'], [0, 1, 0, 'y'], [0, 0, 1, 'z']].map(([x, y, z, name]) =>
      [...project(0.2 * radius * x, 0.2 * radius * y, 0.2 * radius * z), name]);
    for (const [stroke, lineWidth] of [[backgroundColor, 5], [color, 2]]) {
      Object.assign(context, { strokeStyle: stroke, lineWidth, fillStyle: color, lineJoin: 'round' });
      for (const [px, py, , name] of ends) {
        context.beginPath();
        context.moveTo(ox, oy);
        context.lineTo(px, py);
        context.stroke();
        if (stroke === backgroundColor) context.strokeText(name, px + 5, py + 4);
        else context.fillText(name, px + 5, py + 4);
      }
    }
  }

  root.append(make('h2', { textContent: 'By distance' }));
  const columns = [['depth_mm', 'depth, mm'], ['width_mm', 'width, mm'], ['height_mm', 'height, mm'],
    ['sd_x_mm', 'x ± mm'], ['sd_y_mm', 'y ± mm'], ['sd_z_mm', 'z ± mm'],
    ['sd_distance_mm', 'distance ± mm'], ['p95_sd_z_mm', 'z ± mm, 95 % below']];
  for (const map of maps) {
    const head = make('tr', {}, ...columns.map(([, title]) => make('th', { scope: 'col', textContent: title })));
    const rows = map.table.map((line) => make('tr', {}, ...columns.map(([key]) =>
      make('td', { textContent: line.width_mm > 0 || key === 'depth_mm' ? figure(line[key]) : '–' }))));
    if (maps.length > 1) root.append(make('p', { textContent: map.rig }));
    root.append(make('div', { className: 'scroll' },
      make('table', {}, make('thead', {}, head), make('tbody', {}, ...rows))));
  }
  root.append(make('p', { textContent: 'Medians over the part of the slice that is seen.' }));

  function drawAll() {
    depthText.textContent = `${depths[depthIndex] / 1000} m`;
    for (const view of views) {
      drawSlice(view);
      drawRoom(view);
    }
  }
  choice.addEventListener('change', () => {
    quantity = QUANTITIES[choice.value];
    drawAll();
  });
  slider.addEventListener('input', () => {
    depthIndex = Number(slider.value);
    drawAll();
  });
  depthIndex = Math.max(0, depths.indexOf(2000));
  slider.value = depthIndex;
  window.addEventListener('resize', drawAll);
  window.matchMedia('(prefers-color-scheme: dark)').addEventListener('change', drawAll);
  drawAll();
})();
