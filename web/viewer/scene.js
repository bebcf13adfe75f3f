// The scene in 3D: cameras, what they see, objects with their trails. Positions are as delivered:
// x right, y up, z towards the viewer; millimetres.
import {
  AxesHelper, Box3, BufferAttribute, BufferGeometry, CanvasTexture, Color, DynamicDrawUsage, GridHelper, Group, Line,
  LineBasicMaterial, LineDashedMaterial, LineLoop, LineSegments, Mesh, MeshBasicMaterial,
  OctahedronGeometry, PerspectiveCamera, Scene, SphereGeometry, Sprite, SpriteMaterial, Vector3,
  WebGLRenderer,
} from 'three';
import { OrbitControls } from 'three/examples/jsm/controls/OrbitControls.js';
import { element, styleOf } from '../common/dom.js';
import { BodyShape } from './bodies.js';
import { FlatRenderer } from './flat.js';

const kObjects = 6;
const kFov = 60; // degrees, vertical
export const kMostTrail = 1024; // points of a trail
const kMarkerMm = 16;
const kFloorMm = -900;
const kFrustumMm = 450; // to where a camera's view is drawn with edges
const kLabel = 0.036; // of the distance
const kRing = 0.06; // likewise
const kSlowMs = 4; // of a drawing: WebGL that takes longer is a processor's work

function segments(material, points) {
  const geometry = new BufferGeometry();
  const positions = new BufferAttribute(new Float32Array(3 * points), 3);
  positions.setUsage(DynamicDrawUsage);
  geometry.setAttribute('position', positions);
  geometry.setDrawRange(0, 0);
  const lines = new LineSegments(geometry, material);
  lines.frustumCulled = false;
  return lines;
}

function lineThrough(points, material, Kind = Line) {
  const line = new Kind(new BufferGeometry().setFromPoints(points), material);
  line.frustumCulled = false;
  return line;
}

const vector = (list) => new Vector3(...list);

const canvasOfScene = () => element('canvas', { tabindex: 0, role: 'img', 'data-fov': kFov, 'aria-label':
  'The scene in 3D: both cameras, the tracked objects and their trails' });

export class SceneView {
  #dirty = true;
  #chosen = false;

  /** @param onObject  called with the number of an object that was clicked */
  constructor({ onObject }) {
    this.host = element('div', { class: 'scene' });
    this.scene = new Scene();
    this.camera = new PerspectiveCamera(kFov, 1, 5, 60000);
    this.controls = new OrbitControls(this.camera, this.host);
    this.flat = new FlatRenderer(canvasOfScene());
    this.webgl = this.#openWebGL();
    this.#use(this.webgl ?? this.flat);
    this.controls.addEventListener('change', () => this.touch());
    this.cameras = new Group();
    this.floor = new Group();
    this.ray = new Group();
    this.scene.add(this.cameras, this.floor, this.ray);
    this.bodies = [];
    this.depth = 4000;
    this.onObject = onObject;
    this.#makeObjects();
    this.fit();
    new ResizeObserver(() => this.resize()).observe(this.host);
    let pressed = null;
    this.host.addEventListener('pointerdown', (event) => { pressed = [event.clientX, event.clientY]; });
    this.host.addEventListener('pointerup', (event) => {
      if (pressed && Math.hypot(event.clientX - pressed[0], event.clientY - pressed[1]) < 4) this.#click(event);
    });
  }

  touch() {
    this.#dirty = true;
  }

  /** three's renderer, or null where the browser has no WebGL. */
  #openWebGL() {
    const canvas = canvasOfScene();
    const context = canvas.getContext('webgl2', { antialias: true });
    if (!context) return null;
    canvas.addEventListener('webglcontextlost', () => {
      this.webgl = null;
      this.#use(this.flat);
    });
    return new WebGLRenderer({ canvas, context });
  }

  get canvas() {
    return this.renderer.domElement;
  }

  #use(renderer) {
    this.renderer = renderer;
    this.host.dataset.renderer = renderer === this.flat ? '2d' : 'webgl';
    this.host.replaceChildren(this.canvas);
    this.resize();
  }

  /** The other way to draw. Returns which it is now. */
  switchRenderer() {
    this.#use(this.renderer === this.flat ? this.webgl ?? this.flat : this.flat);
    return this.host.dataset.renderer;
  }

  /** Draws with WebGL if that is fast here, by the best of some drawings: the first ones prepare. */
  #chooseRenderer() {
    this.#chosen = true;
    if (this.renderer === this.flat) return;
    const context = this.webgl.getContext();
    let best = Infinity;
    for (let i = 0; i < 4; ++i) {
      const began = performance.now();
      this.webgl.render(this.scene, this.camera);
      context.readPixels(0, 0, 1, 1, context.RGBA, context.UNSIGNED_BYTE, new Uint8Array(4)); // waits for it
      best = Math.min(best, performance.now() - began);
    }
    if (best > kSlowMs) this.#use(this.flat);
  }

  #makeObjects() {
    const ball = new SphereGeometry(kMarkerMm, 20, 14);
    const small = new SphereGeometry(0.55 * kMarkerMm, 12, 8);
    const diamond = new OctahedronGeometry(1.5 * kMarkerMm);
    this.objects = Array.from({ length: kObjects }, () => {
      const object = {
        solid: new MeshBasicMaterial(), faint: new LineBasicMaterial({ transparent: true, opacity: 0.55 }),
        line: new LineBasicMaterial(),
        truthLine: new LineDashedMaterial({ dashSize: 14, gapSize: 10 }),
        thin: new MeshBasicMaterial({ wireframe: true }),
        other: new MeshBasicMaterial({ wireframe: true }),
        estimate: new MeshBasicMaterial(), estimateLine: new LineBasicMaterial(),
      };
      object.marker = new Mesh(ball, object.solid);
      object.filtered = new Mesh(small, object.thin);
      object.second = new Mesh(diamond, object.other);
      object.estimated = new Mesh(small, object.estimate);
      object.ring = new Sprite(new SpriteMaterial({ depthTest: false, transparent: true, sizeAttenuation: false }));
      object.ring.scale.set(kRing, kRing, 1);
      object.trail = segments(object.line, 2 * kMostTrail);
      object.filteredTrail = segments(object.faint, 2 * kMostTrail);
      object.truth = segments(object.truthLine, 2 * kMostTrail);
      object.secondTrail = segments(object.faint, 2 * kMostTrail);
      object.estimatedTrail = segments(object.estimateLine, 2 * kMostTrail);
      object.parts = [object.marker, object.filtered, object.second, object.estimated, object.estimatedTrail, object.ring, object.trail,
        object.filteredTrail, object.truth, object.secondTrail];
      for (const part of object.parts) part.visible = false;
      this.scene.add(...object.parts);
      return object;
    });
  }

  /** Bodies of markers, as the server tells of them; their poses are in the frames. */
  setBodies(bodies) {
    for (const body of this.bodies) this.scene.remove(...body.parts);
    this.bodies = bodies.map((body, i) => new BodyShape(body, i, segments(new LineBasicMaterial(), 2 * kMostTrail)));
    for (const body of this.bodies) {
      body.paint();
      this.scene.add(...body.parts);
    }
    this.touch();
  }

  /** Colours, which follow the page's. */
  paint() {
    this.scene.background = new Color(styleOf('--scene'));
    this.objects.forEach((object, i) => {
      const color = new Color(styleOf(`--object-${i}`));
      for (const material of [object.solid, object.faint, object.line, object.other, object.thin]) material.color = color;
      object.ring.material.map?.dispose();
      object.ring.material.map = this.#circle();
      object.ring.material.needsUpdate = true;
      object.estimate.color = object.estimateLine.color = new Color(styleOf('--estimated'));
      object.truthLine.color = new Color(styleOf('--truth'));
    });
    for (const body of this.bodies) body.paint();
    this.#drawFloor();
    if (this.rig) this.setRig(this.rig, this.depth);
    this.#change();
  }

  /** Something that stands still is another one now. */
  #change() {
    this.flat.forget();
    this.touch();
  }

  /** A text that is equally large wherever it stands. */
  #label(text, position) {
    const canvas = document.createElement('canvas');
    const context = canvas.getContext('2d');
    const font = `36px ${styleOf('--font')}`;
    context.font = font;
    canvas.width = Math.ceil(context.measureText(text).width) + 8;
    canvas.height = 48;
    context.font = font;
    context.fillStyle = styleOf('--ink-soft');
    context.textBaseline = 'middle';
    context.fillText(text, 4, 25);
    const sprite = new Sprite(new SpriteMaterial({
      map: new CanvasTexture(canvas), depthTest: false, transparent: true, sizeAttenuation: false }));
    sprite.position.copy(position);
    sprite.scale.set((kLabel * canvas.width) / canvas.height, kLabel, 1);
    return sprite;
  }

  /** What a chosen object has around it. */
  #circle() {
    const canvas = element('canvas', { width: 64, height: 64 });
    const context = canvas.getContext('2d');
    context.strokeStyle = styleOf('--ink');
    context.lineWidth = 4;
    context.arc(32, 32, 28, 0, 2 * Math.PI);
    context.stroke();
    return new CanvasTexture(canvas);
  }

  #drawFloor() {
    this.#empty(this.floor);
    const size = 2 * Math.ceil(this.depth / 1000) * 1000;
    const color = new Color(styleOf('--grid-3d'));
    const grid = new GridHelper(size, size / 500, color, color);
    grid.position.set(0, kFloorMm, -size / 2 + 500);
    this.floor.add(grid);
    for (let z = 1000; z <= this.depth; z += 1000)
      this.floor.add(this.#label(`${z / 1000} m`, new Vector3(-size / 4, kFloorMm + 40, -z)));
    const axes = new AxesHelper(300);
    const ink = new Color(styleOf('--ink-soft'));
    axes.setColors(ink, ink, ink);
    this.floor.add(axes,
      this.#label('x', new Vector3(340, 0, 0)), this.#label('y', new Vector3(0, 340, 0)),
      this.#label('z', new Vector3(0, 0, 340)));
  }

  #empty(group) {
    for (const child of [...group.children]) {
      group.remove(child);
      child.geometry?.dispose();
      child.material?.map?.dispose();
      child.material?.dispose?.();
    }
  }

  /** The cameras of a calibration, with the space that they see down to the depth limit. */
  setRig(rig, depth) {
    this.rig = rig;
    if (depth && depth !== this.depth) {
      this.depth = depth;
      this.#drawFloor();
    }
    this.#empty(this.cameras);
    rig.cameras.forEach((camera, i) => {
      const centre = vector(camera.centre);
      const color = new Color(styleOf('--frustum'));
      // Where the border of the image meets a plane in front of the right camera, or far outside
      // where it nearly does not.
      const at = (depth) => camera.border.map(vector).map((d) =>
        centre.clone().addScaledVector(d, Math.min((depth + centre.z) / Math.max(-d.z, 1e-6), 2.2 * depth)));
      const edge = new LineBasicMaterial({ color });
      const far = at(kFrustumMm);
      const corners = [0, 1, 2, 3].map((side) => (side * far.length) / 4);
      this.cameras.add(lineThrough(far, edge, LineLoop));
      for (const corner of corners) this.cameras.add(lineThrough([centre, far[corner]], edge));
      this.cameras.add(lineThrough(at(this.depth), new LineBasicMaterial({ color, transparent: true, opacity: 0.4 }), LineLoop));
      const near = camera.border.map((d) => centre.clone().addScaledVector(vector(d), 90));
      const body = new LineBasicMaterial({ color: new Color(styleOf('--ink')) });
      this.cameras.add(lineThrough(near, body, LineLoop));
      for (const corner of corners) this.cameras.add(lineThrough([centre, near[corner]], body));
      this.cameras.add(this.#label(i ? 'right' : 'left', centre.clone().add(new Vector3(0, 120, 0))));
    });
    this.cameras.add(this.#label(`depth limit ${(this.depth / 1000).toFixed(1)} m`,
      new Vector3(0, 0, -this.depth)));
    this.#change();
  }

  /**
   * Comes as near as shows all positions, seen from behind and above the cameras.
   * @param positions  [[x, y, z]]; none = the middle of what the cameras see
   */
  fit(positions = []) {
    const box = new Box3().setFromPoints(positions.map(vector));
    const target = box.isEmpty() ? new Vector3(0, -100, -0.4 * this.depth) : box.getCenter(new Vector3());
    const radius = box.isEmpty() ? 0.4 * this.depth : Math.max(box.getSize(new Vector3()).length() / 2, 200);
    this.camera.up.set(0, 1, 0);
    this.controls.target.copy(target);
    this.camera.position.copy(target).addScaledVector(new Vector3(0.42, 0.36, 0.83), (2.3 * radius) / Math.min(this.camera.aspect, 1));
    this.controls.update();
    this.touch();
  }

  /** As the right camera sees it. */
  cameraView() {
    this.camera.position.set(0, 0, 0.001);
    this.controls.target.set(0, 0, -1000);
    this.controls.update();
    this.camera.position.set(0, 0, 0);
    this.camera.quaternion.identity();
    this.camera.updateMatrixWorld();
    this.touch();
  }

  turn(yaw, pitch, zoom = 1) {
    const offset = this.camera.position.clone().sub(this.controls.target);
    const length = Math.min(Math.max(offset.length() * zoom, 50), 30000);
    const polar = Math.min(Math.max(Math.acos(offset.y / offset.length()) + pitch, 0.02), 3.12);
    const around = Math.atan2(offset.x, offset.z) + yaw;
    offset.set(Math.sin(polar) * Math.sin(around), Math.cos(polar), Math.sin(polar) * Math.cos(around));
    this.camera.position.copy(this.controls.target).addScaledVector(offset, length);
    this.controls.update();
    this.touch();
  }

  /**
   * @param frames  Frames of the first file, maybe of the second
   * @param shown   {raw, filtered, estimated, truth, bodies, trail: seconds, hidden: Set of objects, selected}
   */
  show([first, second], shown) {
    const frame = first.current;
    const other = second?.current ?? null;
    this.objects.forEach((object, i) => {
      const visible = !shown.hidden.has(i);
      const now = visible ? frame?.objects[i] : null;
      this.#place(object.marker, shown.raw && now?.raw);
      this.#place(object.filtered, shown.filtered && now?.filtered);
      this.#place(object.estimated, shown.estimated && now?.estimated);
      this.#place(object.ring, shown.selected === i && now?.raw);
      this.#place(object.second, visible && other?.objects[i]?.raw);
      const trail = (lines, frames, key, on) =>
        this.#trail(lines, frames, (frame) => frame.objects[i]?.[key], visible && on ? shown.trail : 0);
      trail(object.trail, first, 'raw', shown.raw);
      trail(object.filteredTrail, first, 'filtered', shown.filtered);
      trail(object.estimatedTrail, first, 'estimated', shown.estimated);
      if (trail(object.truth, first, 'truth', shown.truth) && this.renderer !== this.flat) object.truth.computeLineDistances();
      if (second) trail(object.secondTrail, second, 'raw', true);
    });
    this.bodies.forEach((body, i) => {
      body.place(shown.bodies ? frame?.bodies?.[i] : null);
      this.#trail(body.trail, first, ({ bodies }) => bodies?.[i]?.p, shown.bodies ? shown.trail : 0);
    });
    this.touch();
  }

  #place(mesh, position) {
    mesh.visible = Boolean(position);
    if (position) mesh.position.set(...position);
  }

  /** @param place  of a frame: [x, y, z], or nothing */
  #trail(lines, frames, place, seconds) {
    const positions = lines.geometry.attributes.position;
    const end = frames.peek(frames.index);
    let points = 0;
    if (end && seconds > 0)
      for (let i = frames.index; points < kMostTrail; --i) {
        const a = frames.peek(i - 1);
        const b = frames.peek(i);
        if (!a || !b || end.t - a.t > seconds) break;
        const from = place(a);
        const to = place(b);
        if (!from || !to) continue; // a gap
        positions.setXYZ(2 * points, ...from);
        positions.setXYZ(2 * points + 1, ...to);
        ++points;
      }
    lines.visible = points > 0;
    lines.geometry.setDrawRange(0, 2 * points);
    positions.needsUpdate = true;
    return points > 0;
  }

  /** A blob's ray; null = none. */
  showRay(ends, color) {
    this.#empty(this.ray);
    if (ends)
      this.ray.add(lineThrough(ends.map(vector), new LineBasicMaterial({ color: new Color(styleOf(color)) })));
    this.#change();
  }

  #click(event) {
    const { left, top, width, height } = this.canvas.getBoundingClientRect();
    let nearest = null;
    let least = 24; // px
    this.objects.forEach((object, i) => {
      if (!object.marker.visible) return;
      const place = object.marker.position.clone().project(this.camera);
      const distance = Math.hypot(left + (place.x + 1) * width / 2 - event.clientX,
        top + (1 - place.y) * height / 2 - event.clientY);
      if (distance < least) [nearest, least] = [i, distance];
    });
    this.onObject(nearest);
  }

  resize() {
    const { clientWidth, clientHeight } = this.host;
    if (clientWidth === 0 || clientHeight === 0) return;
    this.renderer.setPixelRatio(Math.min(devicePixelRatio, 2));
    this.renderer.setSize(clientWidth, clientHeight);
    this.camera.aspect = clientWidth / clientHeight;
    this.camera.updateProjectionMatrix();
    this.touch();
  }

  /** Draws if anything changed. Returns whether it did. */
  render() {
    if (!this.#dirty) return false;
    this.#dirty = false;
    if (this.rig && !this.#chosen) this.#chooseRenderer();
    this.renderer.render(this.scene, this.camera);
    return true;
  }
}
