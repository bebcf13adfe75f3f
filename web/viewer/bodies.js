// Bodies of markers in the scene: their shape at their pose, and where their origin was.
import {
  BufferGeometry, Color, LineBasicMaterial, LineSegments, Mesh, MeshBasicMaterial, Quaternion, SphereGeometry, Vector3,
} from 'three';
import { styleOf } from '../common/dom.js';

const kColours = 3;
const kMarkerMm = 7;
const kOriginMm = 11;
const kAxes = ['--axis-x', '--axis-y', '--axis-z'];

export const colourOfBody = (i) => `--body-${i % kColours}`;

const apart = (a, b) => Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);

/** Pairs of markers with no third one that is nearer to both: few lines, and all hang together. */
export function edgesOf(places) {
  const edges = [];
  places.forEach((a, i) => places.slice(i + 1).forEach((b, k) => {
    const length = apart(a, b);
    const between = places.some((c, n) => n !== i && n !== i + 1 + k && Math.max(apart(a, c), apart(b, c)) < length);
    if (!between) edges.push([a, b]);
  }));
  return edges;
}

function segmentsOf(pairs) {
  const lines = new LineSegments(
    new BufferGeometry().setFromPoints(pairs.flat().map((p) => new Vector3(...p))), new LineBasicMaterial());
  lines.frustumCulled = false;
  return lines;
}

/** One body: what moves with its pose. */
export class BodyShape {
  /** @param trail  lines for where the origin was */
  constructor({ markers, pivot }, index, trail) {
    this.colour = colourOfBody(index);
    this.places = markers.map(({ p }) => p);
    const far = Math.max(...this.places.map((p) => Math.hypot(...p)), 20);
    const unit = [[far, 0, 0], [0, far, 0], [0, 0, far]];
    this.edges = segmentsOf([...edgesOf(this.places), ...(pivot ? [[[0, 0, 0], pivot]] : [])]);
    // How far two markers are turned about their line nobody knows: they show no axes.
    this.axes = markers.length < 3 ? [] : unit.map((end) => segmentsOf([[[0, 0, 0], end]]));
    this.solid = new MeshBasicMaterial();
    const ball = new SphereGeometry(kMarkerMm, 14, 10);
    this.markers = this.places.map(() => new Mesh(ball, this.solid));
    this.origin = new Mesh(new SphereGeometry(kOriginMm, 16, 12), this.solid);
    this.trail = trail;
    this.parts = [this.edges, ...this.axes, ...this.markers, this.origin, trail];
    for (const part of this.parts) part.visible = false;
  }

  paint() {
    const colour = new Color(styleOf(this.colour));
    this.solid.color = this.edges.material.color = this.trail.material.color = colour;
    this.axes.forEach(({ material }, i) => { material.color = new Color(styleOf(kAxes[i])); });
  }

  /** @param pose  of a frame: {p, q}; null = nowhere */
  place(pose) {
    const shown = Boolean(pose);
    for (const part of [this.edges, ...this.axes, ...this.markers, this.origin]) part.visible = shown;
    if (!shown) return;
    const turned = new Quaternion(...pose.q);
    const origin = new Vector3(...pose.p);
    for (const lines of [this.edges, ...this.axes]) {
      lines.quaternion.copy(turned);
      lines.position.copy(origin);
    }
    this.markers.forEach((marker, i) =>
      marker.position.set(...this.places[i]).applyQuaternion(turned).add(origin));
    this.origin.position.copy(origin);
  }
}
