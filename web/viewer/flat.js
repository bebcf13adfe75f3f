// Draws the scene's lines, balls and labels on a 2D canvas: where WebGL is missing, or slow because
// a processor does its work. What stands still while the view does is drawn once.
import { Color, Matrix4, Vector3, Vector4 } from 'three';

const kLeastStep = 0.7; // px; a path leaves out what is nearer to its last point

/** A path that leaves out what nobody sees. */
class Path {
  constructor(context) {
    this.context = context;
    this.x = this.y = this.endX = this.endY = NaN;
    context.beginPath();
  }

  line(x0, y0, x1, y1) {
    if (x0 !== this.endX || y0 !== this.endY) {
      this.end();
      this.context.moveTo(x0, y0);
      this.x = x0;
      this.y = y0;
    }
    this.endX = x1;
    this.endY = y1;
    if (Math.abs(x1 - this.x) + Math.abs(y1 - this.y) > kLeastStep) this.end();
  }

  end() {
    if (this.endX === this.x && this.endY === this.y) return;
    this.context.lineTo(this.endX, this.endY);
    this.x = this.endX;
    this.y = this.endY;
  }

  stroke() {
    this.end();
    this.context.stroke();
  }
}

/** Of a line: lines with colours of their own have one and the same everywhere. */
function colorOf({ geometry, material }) {
  return material.vertexColors ? new Color().fromBufferAttribute(geometry.attributes.color, 0) : material.color;
}

/** A body as its outline: a ball, or what else there is, a diamond. */
function drawBody(context, { geometry, material }, x, y, radius) {
  context.strokeStyle = context.fillStyle = material.color.getStyle();
  context.beginPath();
  if (geometry.type === 'SphereGeometry') {
    context.arc(x, y, radius, 0, 2 * Math.PI);
    if (!material.wireframe) return context.fill();
    for (const [a, b] of [[radius, 0.4 * radius], [0.4 * radius, radius]]) {
      context.moveTo(x + a, y);
      context.ellipse(x, y, a, b, 0, 0, 2 * Math.PI);
    }
  } else {
    context.moveTo(x - radius, y);
    for (const [right, up] of [[0, 1], [1, 0], [0, -1], [-1, 0], [1, 0]]) context.lineTo(x + right * radius, y - up * radius);
    context.moveTo(x, y - radius);
    context.lineTo(x, y + radius);
  }
  context.stroke();
}

/** Takes the place of three's WebGLRenderer. */
export class FlatRenderer {
  #toScreen = new Matrix4();
  #ofObject = new Matrix4();
  #still = document.createElement('canvas');
  #stillFor = null; // the view that the still layer was drawn for

  constructor(canvas) {
    this.domElement = canvas;
    this.context = canvas.getContext('2d', { alpha: false });
  }

  setPixelRatio(ratio) {
    this.ratio = ratio;
  }

  setSize(width, height) {
    Object.assign(this, { width, height });
    for (const canvas of [this.domElement, this.#still])
      [canvas.width, canvas.height] = [Math.floor(width * this.ratio), Math.floor(height * this.ratio)];
    this.domElement.style.width = `${width}px`;
    this.domElement.style.height = `${height}px`;
    this.forget();
  }

  /** Something that stands still is another one now. */
  forget() {
    this.#stillFor = null;
  }

  /** @param scene  its groups stand still, its other objects move */
  render(scene, camera) {
    const { context, width, height } = this;
    scene.updateMatrixWorld();
    camera.updateMatrixWorld();
    this.near = camera.near;
    this.focal = (height / 2) * camera.projectionMatrix.elements[5];
    this.#toScreen.set(width / 2, 0, 0, width / 2, 0, -height / 2, 0, height / 2, 0, 0, 1, 0, 0, 0, 0, 1)
      .multiply(camera.projectionMatrix).multiply(camera.matrixWorldInverse);
    if (!this.#stillFor?.equals(this.#toScreen)) {
      this.#stillFor = this.#toScreen.clone();
      const layer = this.#still.getContext('2d', { alpha: false });
      this.#begin(layer);
      layer.fillStyle = scene.background.getStyle();
      layer.fillRect(0, 0, width, height);
      for (const group of scene.children) if (group.isGroup) this.#draw(layer, group.children);
    }
    context.setTransform(1, 0, 0, 1, 0, 0);
    context.drawImage(this.#still, 0, 0);
    this.#begin(context);
    this.#draw(context, scene.children.filter((child) => child.visible && !child.isGroup));
  }

  #begin(context) {
    context.setTransform(this.ratio, 0, 0, this.ratio, 0, 0);
    context.lineJoin = 'round';
    context.lineWidth = 1;
  }

  /** Lines, before them bodies from far to near, before these what is always seen. */
  #draw(context, objects) {
    for (const object of objects) if (object.isLine) this.#drawLine(context, object);
    context.globalAlpha = 1;
    context.setLineDash([]);
    objects.filter((object) => object.isMesh).map((mesh) => ({ mesh, at: this.#placeOf(mesh) }))
      .filter(({ at }) => at.w > this.near).sort((a, b) => b.at.w - a.at.w)
      .forEach(({ mesh, at }) =>
        drawBody(context, mesh, at.x, at.y, (this.focal * mesh.geometry.parameters.radius) / at.w));
    for (const object of objects) if (object.isSprite) this.#drawSprite(context, object);
  }

  /** {x, y} in pixels, w: how far it is. */
  #placeOf(object) {
    const { x, y, z } = new Vector3().setFromMatrixPosition(object.matrixWorld);
    const at = new Vector4(x, y, z, 1).applyMatrix4(this.#toScreen);
    return { x: at.x / at.w, y: at.y / at.w, w: at.w };
  }

  #drawSprite(context, sprite) {
    const { x, y, w } = this.#placeOf(sprite);
    const { image } = sprite.material.map;
    const [width, height] = [sprite.scale.x * this.focal, sprite.scale.y * this.focal];
    if (w > this.near) context.drawImage(image, x - width / 2, y - height / 2, width, height);
  }

  #drawLine(context, line) {
    const { geometry, material } = line;
    const { array, count } = geometry.attributes.position;
    const points = Math.min(count, geometry.drawRange.count);
    const e = this.#ofObject.multiplyMatrices(this.#toScreen, line.matrixWorld).elements;
    const { near } = this;
    context.strokeStyle = colorOf(line).getStyle();
    context.globalAlpha = material.opacity;
    context.setLineDash(material.isLineDashedMaterial ? [5, 4] : []);
    const path = new Path(context);
    const coordinate = (row, i) => e[row] * array[3 * i] + e[row + 4] * array[3 * i + 1] + e[row + 8] * array[3 * i + 2] + e[row + 12];
    const piece = (a, b) => {
      let aw = coordinate(3, a);
      let bw = coordinate(3, b);
      if (aw < near && bw < near) return;
      let [ax, ay, bx, by] = [coordinate(0, a), coordinate(1, a), coordinate(0, b), coordinate(1, b)];
      // What reaches behind the viewer ends before.
      const share = (near - aw) / (bw - aw);
      if (aw < near) [ax, ay, aw] = [ax + share * (bx - ax), ay + share * (by - ay), near];
      else if (bw < near) [bx, by, bw] = [ax + share * (bx - ax), ay + share * (by - ay), near];
      path.line(ax / aw, ay / aw, bx / bw, by / bw);
    };
    // The trails' pairs lead back in time: so each begins where the one before it ended.
    if (line.isLineSegments) for (let i = 0; i + 1 < points; i += 2) piece(i + 1, i);
    else for (let i = 0; i + 1 < points; ++i) piece(i, i + 1);
    if (line.isLineLoop) piece(points - 1, 0);
    path.stroke();
  }
}
