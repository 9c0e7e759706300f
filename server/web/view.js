// Draws a frame with WebGL2: pixels as they are in textures of integers, stretched on the way.

const kVertex = `#version 300 es
uniform vec4 place;   // of the tile in the canvas: left, top, width, height, in 0..1
out vec2 at;
void main() {
  vec2 corner = vec2(gl_VertexID & 1, gl_VertexID >> 1);
  at = corner;
  vec2 spot = place.xy + corner * place.zw;
  gl_Position = vec4(spot.x * 2.0 - 1.0, 1.0 - spot.y * 2.0, 0.0, 1.0);
}`;

const kFragment = `#version 300 es
precision highp float;
precision highp usampler2D;
uniform usampler2D pixels;
uniform usampler2D missing; // a texel a row: not 0 where it did not come whole
uniform ivec2 size;
uniform vec3 stretch;       // black, white, bend
uniform float full;
in vec2 at;
out vec4 colour;
void main() {
  ivec2 spot = min(ivec2(at * vec2(size)), size - 1);
  if (texelFetch(missing, ivec2(0, spot.y), 0).r != 0u) {
    bool isStripe = (int(gl_FragCoord.x + gl_FragCoord.y) & 7) < 3;
    colour = isStripe ? vec4(0.85, 0.1, 0.75, 1.0) : vec4(0.2, 0.0, 0.2, 1.0);
    return;
  }
  float value = float(texelFetch(pixels, spot, 0).r);
  if (value >= full) { colour = vec4(1.0, 0.25, 0.2, 1.0); return; }
  float part = clamp((value - stretch.x) / (stretch.y - stretch.x), 0.0, 1.0);
  if (stretch.z > 0.0) part = asinh(part * stretch.z) / asinh(stretch.z);
  colour = vec4(vec3(part), 1.0);
}`;

const kFormats = {8: ['R8UI', 'UNSIGNED_BYTE'], 16: ['R16UI', 'UNSIGNED_SHORT'],
                  32: ['R32UI', 'UNSIGNED_INT']};

export class View {
  constructor(canvas) {
    this.canvas = canvas;
    this.zoom = 0;          // canvas pixels for a pixel of the frame; 0: all of it
    this.centre = [0, 0];   // pixel of the frame in the middle of the canvas
    this.frame = null;
    this.tiles = [];
    this.start();
    canvas.addEventListener('webglcontextlost', event => event.preventDefault());
    canvas.addEventListener('webglcontextrestored', () => {
      this.start();
      if (this.frame) this.show(this.frame);
    });
    new ResizeObserver(() => this.draw()).observe(canvas);
  }

  start() {
    const gl = this.gl = this.canvas.getContext('webgl2', {preserveDrawingBuffer: true});
    if (!gl) throw new Error('this browser has no WebGL2');
    const program = this.program = gl.createProgram();
    for (const [type, text] of [[gl.VERTEX_SHADER, kVertex], [gl.FRAGMENT_SHADER, kFragment]]) {
      const shader = gl.createShader(type);
      gl.shaderSource(shader, text);
      gl.compileShader(shader);
      gl.attachShader(program, shader);
    }
    gl.linkProgram(program);
    if (!gl.getProgramParameter(program, gl.LINK_STATUS)) {
      throw new Error(gl.getProgramInfoLog(program));
    }
    gl.useProgram(program);
    this.most = gl.getParameter(gl.MAX_TEXTURE_SIZE);
    this.tiles = [];
    this.shape = '';
    this.where = name => gl.getUniformLocation(program, name);
  }

  texture() {
    const gl = this.gl;
    const texture = gl.createTexture();
    gl.bindTexture(gl.TEXTURE_2D, texture);
    for (const name of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER]) {
      gl.texParameteri(gl.TEXTURE_2D, name, gl.NEAREST);
    }
    return texture;
  }

  // One tile for each part that a texture can hold.
  makeTiles({columns, rows, bits}) {
    const gl = this.gl;
    const shape = `${columns} ${rows} ${bits}`;
    if (shape === this.shape) return;
    this.shape = shape;
    for (const tile of this.tiles) {
      gl.deleteTexture(tile.pixels);
      gl.deleteTexture(tile.missing);
    }
    this.tiles = [];
    for (let row = 0; row < rows; row += this.most) {
      for (let column = 0; column < columns; column += this.most) {
        this.tiles.push({column, row, columns: Math.min(this.most, columns - column),
                         rows: Math.min(this.most, rows - row), pixels: this.texture(),
                         missing: this.texture()});
      }
    }
  }

  // A frame: columns, rows, bits, pixels (a typed array), missingRows, stretch, full.
  show(frame) {
    const gl = this.gl;
    this.frame = frame;
    this.makeTiles(frame);
    const [internal, type] = kFormats[frame.bits];
    const missing = new Uint8Array(frame.rows);
    for (const row of frame.missingRows ?? missing.keys()) missing[row] = 1;
    gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
    for (const tile of this.tiles) {
      gl.pixelStorei(gl.UNPACK_ROW_LENGTH, frame.columns);
      gl.pixelStorei(gl.UNPACK_SKIP_PIXELS, tile.column);
      gl.pixelStorei(gl.UNPACK_SKIP_ROWS, tile.row);
      gl.bindTexture(gl.TEXTURE_2D, tile.pixels);
      gl.texImage2D(gl.TEXTURE_2D, 0, gl[internal], tile.columns, tile.rows, 0, gl.RED_INTEGER,
                    gl[type], frame.pixels);
      for (const name of [gl.UNPACK_ROW_LENGTH, gl.UNPACK_SKIP_PIXELS, gl.UNPACK_SKIP_ROWS]) {
        gl.pixelStorei(name, 0);
      }
      gl.bindTexture(gl.TEXTURE_2D, tile.missing);
      gl.texImage2D(gl.TEXTURE_2D, 0, gl.R8UI, 1, tile.rows, 0, gl.RED_INTEGER, gl.UNSIGNED_BYTE,
                    missing.subarray(tile.row, tile.row + tile.rows));
    }
    this.draw();
  }

  // Canvas pixels for a pixel, and where the frame's first pixel lies.
  placing() {
    const {columns, rows} = this.frame;
    const {width, height} = this.canvas;
    if (this.zoom === 0) {
      const scale = Math.min(width / columns, height / rows);
      return [scale, (width - columns * scale) / 2, (height - rows * scale) / 2];
    }
    return [this.zoom, Math.round(width / 2 - this.centre[0] * this.zoom),
            Math.round(height / 2 - this.centre[1] * this.zoom)];
  }

  draw() {
    const gl = this.gl;
    this.canvas.width = Math.round(this.canvas.clientWidth * devicePixelRatio);
    this.canvas.height = Math.round(this.canvas.clientHeight * devicePixelRatio);
    const {width, height} = this.canvas;
    gl.viewport(0, 0, width, height);
    gl.clearColor(0.08, 0.09, 0.1, 1);
    gl.clear(gl.COLOR_BUFFER_BIT);
    if (!this.frame) return;
    const [scale, left, top] = this.placing();
    const {black, white, bend} = this.frame.stretch;
    gl.uniform3f(this.where('stretch'), black, white, bend);
    gl.uniform1f(this.where('full'), this.frame.full);
    gl.uniform1i(this.where('pixels'), 0);
    gl.uniform1i(this.where('missing'), 1);
    for (const tile of this.tiles) {
      gl.activeTexture(gl.TEXTURE1);
      gl.bindTexture(gl.TEXTURE_2D, tile.missing);
      gl.activeTexture(gl.TEXTURE0);
      gl.bindTexture(gl.TEXTURE_2D, tile.pixels);
      gl.uniform2i(this.where('size'), tile.columns, tile.rows);
      gl.uniform4f(this.where('place'), (left + tile.column * scale) / width,
                   (top + tile.row * scale) / height, tile.columns * scale / width,
                   tile.rows * scale / height);
      gl.drawArrays(gl.TRIANGLE_STRIP, 0, 4);
    }
    this.onDraw?.();
  }

  // Pixel of the frame under a place of the page; it may lie outside.
  pixelAt({clientX, clientY}) {
    const box = this.canvas.getBoundingClientRect();
    const [scale, left, top] = this.placing();
    return [((clientX - box.left) * devicePixelRatio - left) / scale,
            ((clientY - box.top) * devicePixelRatio - top) / scale];
  }

  setZoom(zoom, keep) {
    if (!this.frame) return;
    const spot = keep ? this.pixelAt(keep) : [this.frame.columns / 2, this.frame.rows / 2];
    this.zoom = zoom === 0 ? 0 : Math.min(64, Math.max(1 / 32, zoom));
    this.centre = spot;
    if (keep && zoom !== 0) {
      const now = this.pixelAt(keep);
      this.centre = [2 * spot[0] - now[0], 2 * spot[1] - now[1]];
    }
    this.draw();
  }

  move(columns, rows) {
    if (this.zoom === 0) {
      const [scale] = this.placing();
      this.zoom = scale;
      this.centre = [this.frame.columns / 2, this.frame.rows / 2];
    }
    this.centre = [this.centre[0] + columns, this.centre[1] + rows];
    this.draw();
  }
}
