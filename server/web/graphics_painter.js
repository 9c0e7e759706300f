// Draws frames with WebGL2: pixels as they are in textures of integers, stretched on the way.

import {kBack, missingOf} from './software_painter.js';

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
uniform bool isWhole;       // no row is missing
uniform vec4 stretch;       // black, what is multiplied above it, bend, and its asinh's inverse
uniform float full;
in vec2 at;
out vec4 colour;
void main() {
  ivec2 spot = min(ivec2(at * vec2(size)), size - 1);
  if (!isWhole && texelFetch(missing, ivec2(0, spot.y), 0).r != 0u) {
    bool isStripe = (int(gl_FragCoord.x + gl_FragCoord.y) & 7) < 3;
    colour = isStripe ? vec4(0.85, 0.1, 0.75, 1.0) : vec4(0.2, 0.0, 0.2, 1.0);
    return;
  }
  float value = float(texelFetch(pixels, spot, 0).r);
  if (value >= full) { colour = vec4(1.0, 0.25, 0.2, 1.0); return; }
  float part = clamp((value - stretch.x) * stretch.y, 0.0, 1.0);
  if (stretch.z > 0.0) {
    float bent = part * stretch.z;
    part = log(bent + sqrt(bent * bent + 1.0)) * stretch.w;
  }
  colour = vec4(vec3(part), 1.0);
}`;

const kFormats = {8: ['R8UI', 'UNSIGNED_BYTE'], 16: ['R16UI', 'UNSIGNED_SHORT'],
                  32: ['R32UI', 'UNSIGNED_INT']};

// Whether a processor makes the graphics up, which takes it longer than to do without them.
function isMadeUp() {
  const gl = document.createElement('canvas').getContext('webgl2');
  if (!gl) return true;
  const told = gl.getExtension('WEBGL_debug_renderer_info');
  const name = gl.getParameter(told ? told.UNMASKED_RENDERER_WEBGL : gl.RENDERER);
  gl.getExtension('WEBGL_lose_context')?.loseContext();
  return /swiftshader|llvmpipe|softpipe|software|basic render/i.test(name);
}

export class GraphicsPainter {
  // Null where there is no card for it, unless it `must` be.
  static on(canvas, must) {
    if (!must && isMadeUp()) return null;
    const gl = canvas.getContext('webgl2', {alpha: false, antialias: false, depth: false});
    return gl && new GraphicsPainter(canvas, gl);
  }

  constructor(canvas, gl) {
    this.canvas = canvas;
    this.gl = gl;
    this.start();
    canvas.addEventListener('webglcontextlost', event => event.preventDefault());
    canvas.addEventListener('webglcontextrestored', () => {
      this.start();
      this.onRestored?.();
    });
  }

  start() {
    const gl = this.gl;
    const program = gl.createProgram();
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
    this.where = Object.fromEntries(
        ['place', 'pixels', 'missing', 'isWhole', 'size', 'stretch', 'full'].map(
            name => [name, gl.getUniformLocation(program, name)]));
  }

  texture(format, columns, rows) {
    const gl = this.gl;
    const texture = gl.createTexture();
    gl.bindTexture(gl.TEXTURE_2D, texture);
    gl.texStorage2D(gl.TEXTURE_2D, 1, format, columns, rows);
    for (const name of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER]) {
      gl.texParameteri(gl.TEXTURE_2D, name, gl.NEAREST);
    }
    return texture;
  }

  // One tile for each part that a texture can hold.
  makeTiles({part: {columns, rows}, bits}) {
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
        const [wide, high] = [Math.min(this.most, columns - column), Math.min(this.most, rows - row)];
        this.tiles.push({column, row, columns: wide, rows: high,
                         pixels: this.texture(gl[kFormats[bits][0]], wide, high),
                         missing: this.texture(gl.R8UI, 1, high)});
      }
    }
  }

  take(frame) {
    const gl = this.gl;
    this.frame = frame;
    this.makeTiles(frame);
    const type = gl[kFormats[frame.bits][1]];
    const isWhole = frame.missingRows?.length === 0;
    const missing = isWhole ? null : missingOf(frame);
    gl.uniform1i(this.where.isWhole, isWhole);
    gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
    for (const tile of this.tiles) {
      gl.pixelStorei(gl.UNPACK_ROW_LENGTH, frame.part.columns);
      gl.pixelStorei(gl.UNPACK_SKIP_PIXELS, tile.column);
      gl.pixelStorei(gl.UNPACK_SKIP_ROWS, tile.row);
      gl.bindTexture(gl.TEXTURE_2D, tile.pixels);
      gl.texSubImage2D(gl.TEXTURE_2D, 0, 0, 0, tile.columns, tile.rows, gl.RED_INTEGER, type,
                       frame.pixels);
      for (const name of [gl.UNPACK_ROW_LENGTH, gl.UNPACK_SKIP_PIXELS, gl.UNPACK_SKIP_ROWS]) {
        gl.pixelStorei(name, 0);
      }
      if (isWhole) continue;
      gl.bindTexture(gl.TEXTURE_2D, tile.missing);
      gl.texSubImage2D(gl.TEXTURE_2D, 0, 0, 0, 1, tile.rows, gl.RED_INTEGER, gl.UNSIGNED_BYTE,
                       missing.subarray(tile.row, tile.row + tile.rows));
    }
  }

  paint([scale, left, top]) {
    const {gl, frame} = this;
    [left, top] = [left + frame.part.column * scale, top + frame.part.row * scale];
    scale *= frame.part.step;
    const {width, height} = this.canvas;
    gl.viewport(0, 0, width, height);
    gl.clearColor(...kBack.map(part => part / 255), 1);
    gl.clear(gl.COLOR_BUFFER_BIT);
    const {black, white, bend} = frame.stretch;
    gl.uniform4f(this.where.stretch, black, 1 / (white - black), bend, 1 / Math.asinh(bend || 1));
    gl.uniform1f(this.where.full, frame.full);
    gl.uniform1i(this.where.pixels, 0);
    gl.uniform1i(this.where.missing, 1);
    for (const tile of this.tiles) {
      gl.activeTexture(gl.TEXTURE1);
      gl.bindTexture(gl.TEXTURE_2D, tile.missing);
      gl.activeTexture(gl.TEXTURE0);
      gl.bindTexture(gl.TEXTURE_2D, tile.pixels);
      gl.uniform2i(this.where.size, tile.columns, tile.rows);
      gl.uniform4f(this.where.place, (left + tile.column * scale) / width,
                   (top + tile.row * scale) / height, tile.columns * scale / width,
                   tile.rows * scale / height);
      gl.drawArrays(gl.TRIANGLE_STRIP, 0, 4);
    }
  }
}
