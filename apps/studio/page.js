// Tarvo Ripple Studio: the page around the render worker. The controls are
// made from the parameters the plug-in declares at parameter set-up; every
// setting travels as the command line's option name and value text, and the
// worker's host applies them exactly as tarvo-ripple does. The page only
// shows pictures: it computes none.
'use strict';

const $ = (id) => document.getElementById(id);
const kSizes = ['320x240', '640x480', '1280x720', '1920x1080'];
const kTimeScale = 30;  // the command line's default time scale

const state = {
  declared: null,         // the parameter list as --list-params --json prints it
  controls: new Map(),    // option name → { def, get(), set(text), fromDefault }
  settings: new Map(),    // option name → value text, for values not at their default
  time: 0,
  source: 'demo',         // 'demo' or 'file'
  fileName: '',
  file: null,             // the opened picture: { data: ImageData at its own size, bitmap }
  width: 640, height: 480,
  input: null,            // ImageData of the input (straight RGBA)
  output: null,           // ImageData of the last render
  outputBytes: null,      // its bytes, for the digest and the PNG
  renders: 0,
  shown: 0,               // pictures shown so far (renders and before/after switches)
  digest: false,
};

// ---- the worker, one request at a time; a newer render replaces a waiting one

const worker = new Worker('worker.js');
let nextId = 1;
let busy = null;          // the request the worker is on
let waitingRender = null; // the newest render not yet sent
const queue = [];         // other requests (open, input), in order
const callbacks = new Map();

function Send(msg, done) {
  msg.id = nextId++;
  callbacks.set(msg.id, done);
  if (msg.op === 'render') {
    if (waitingRender) callbacks.delete(waitingRender.id);  // stale: dropped unsent
    waitingRender = msg;
  } else {
    queue.push(msg);
  }
  Pump();
}

function Pump() {
  if (busy) return;
  busy = queue.shift() || waitingRender;
  if (!busy) return;
  if (busy === waitingRender) waitingRender = null;
  worker.postMessage(busy);
}

worker.onmessage = (e) => {
  const reply = e.data;
  const done = callbacks.get(reply.id);
  callbacks.delete(reply.id);
  busy = null;
  if (reply.restarted) {
    // A fresh program: set it up and give it the input again first.
    const input = InputRequest();
    input.id = nextId++;
    queue.unshift({ op: 'open', id: nextId++ }, input);
  }
  if (done) done(reply);
  Pump();
};

// ---- settings

function SettingsText() {
  const lines = [];
  for (const [name, text] of state.settings) lines.push(name + '=' + text);
  if (state.time !== 0) lines.push('time=' + state.time);
  return lines.join('\n');
}

function Changed(name, text) {
  const c = state.controls.get(name);
  if (text === '' || (c && text === c.defaultText)) state.settings.delete(name);
  else state.settings.set(name, text);
  ShowStrings();
  Render();
}

// ---- rendering and showing

function Render() {
  if (!state.declared || !state.input) return;
  $('status').textContent = 'rendering…';
  const settings = SettingsText();
  Send({ op: 'render', settings }, (reply) => {
    if (reply.error) return ShowError(reply.error);
    ShowError('');
    state.outputBytes = new Uint8Array(reply.rgba);
    state.filter = reply.filter;
    ShowFilterStrings();
    state.output = new ImageData(new Uint8ClampedArray(reply.rgba), reply.width, reply.height);
    state.outputSettings = settings;
    state.renders++;
    $('status').textContent = `${reply.width}×${reply.height} rendered in ${reply.ms.toFixed(1)} ms`;
    $('status').dataset.ms = reply.ms.toFixed(3);
    Show();
  });
}

// The test hook: the digest of the picture shown, with the number of
// renders and pictures shown so far and the settings of the render shown
// (none for the input). A newer picture's digest wins over an older one
// still being hashed.
let digestSeq = 0;
async function WriteDigest(bytes, fields) {
  const seq = ++digestSeq;
  const hash = new Uint8Array(await crypto.subtle.digest('SHA-256', bytes));
  if (seq !== digestSeq) return;
  const el = $('digest');
  el.textContent = 'sha256:' + Array.from(hash, (b) => b.toString(16).padStart(2, '0')).join('');
  Object.assign(el.dataset, fields);
}

function Show() {
  const image = $('before').checked ? state.input : (state.output || state.input);
  if (!image) return;
  const canvas = $('picture');
  if (canvas.width !== image.width || canvas.height !== image.height) {
    canvas.width = image.width;
    canvas.height = image.height;
  }
  canvas.getContext('2d').putImageData(image, 0, 0);
  PlaceHandle();
  state.shown++;
  if (state.digest) {
    const settings = image === state.output ? state.outputSettings : '';
    WriteDigest(image.data, { renders: state.renders, shown: state.shown, settings });
  }
}

// A failed render also replaces the digest; a picture that cannot be opened
// leaves the one shown (and its digest) as it was.
function ShowError(text, pictureKept = false) {
  $('error').textContent = text;
  if (text) {
    $('status').textContent = 'error';
    if (state.digest && !pictureKept) {
      digestSeq++;
      $('digest').textContent = 'error: ' + text;
    }
  }
}

// The opened picture at its own size is sent as decoded; another frame size
// is the browser's scaling of it.
function FileRequest(file, width, height) {
  let data = file.data;
  if (width !== data.width || height !== data.height) {
    const ctx = new OffscreenCanvas(width, height).getContext('2d');
    ctx.drawImage(file.bitmap, 0, 0, width, height);
    data = ctx.getImageData(0, 0, width, height);
  }
  return { op: 'image', name: file.name, width, height, rgba: data.data.buffer };
}

function InputRequest() {
  if (state.source === 'file' && state.file) return FileRequest(state.file, state.width, state.height);
  return { op: 'demo', width: state.width, height: state.height };
}

// A new input from the worker. A centre set by hand stays on the same spot
// of the picture when the frame size changes, so that it stays inside it.
function UseInput(reply) {
  const old = state.input;
  state.input = new ImageData(new Uint8ClampedArray(reply.rgba), reply.width, reply.height);
  const c = state.point && state.settings.has(state.point.option) ? CenterPixels() : null;
  if (old && c && Number.isFinite(c.x) && Number.isFinite(c.y) &&
      (old.width !== reply.width || old.height !== reply.height)) {
    const text = `${Math.round(c.x * reply.width / old.width)},${Math.round(c.y * reply.height / old.height)}`;
    state.point.box.value = text;
    state.settings.set(state.point.option, text);
  }
  state.output = null;
  ShowStrings();
  Render();
}

function LoadInput() {
  let request;
  try {
    request = InputRequest();
  } catch (err) {
    return ShowError('the picture cannot be read: ' + err.message);
  }
  Send(request, (reply) => (reply.error ? ShowError(reply.error) : UseInput(reply)));
}

// ---- controls from the declarations

function FormatNumber(v) { return String(v); }

function Row(label, title) {
  const row = document.createElement('div');
  row.className = 'control';
  const name = document.createElement('label');
  name.textContent = label;
  name.title = title;
  row.appendChild(name);
  $('controls').appendChild(row);
  return row;
}

function NumberControl(p, min, max, step) {
  const row = Row(p.name, p.option);
  const range = document.createElement('input');
  range.type = 'range';
  range.min = min; range.max = max; range.step = step;
  const box = document.createElement('input');
  box.type = 'text';
  box.inputMode = 'decimal';
  box.dataset.option = p.option.slice(2);
  const defaultText = FormatNumber(p.default);
  const set = (text) => { box.value = text; range.value = text; };
  set(defaultText);
  range.addEventListener('input', () => { box.value = range.value; Changed(box.dataset.option, range.value); });
  box.addEventListener('change', () => { range.value = box.value; Changed(box.dataset.option, box.value.trim()); });
  row.append(range, box);
  return { defaultText, set };
}

function PopupControl(p) {
  const row = Row(p.name, p.option);
  const select = document.createElement('select');
  select.dataset.option = p.option.slice(2);
  let defaultText = String(p.default);
  for (const e of p.entries) {  // every value the menu accepts: no separator lines
    const option = document.createElement('option');
    option.value = e.option_value;
    option.textContent = e.name || `${e.value} (unnamed)`;
    select.appendChild(option);
    if (e.value === p.default) defaultText = option.value;
  }
  select.value = defaultText;
  select.addEventListener('change', () => Changed(select.dataset.option, select.value));
  row.appendChild(select);
  return { defaultText, set: (text) => { select.value = text; } };
}

function PointControl(p) {
  const row = Row(p.name, p.option + ' (drag on the picture)');
  const box = document.createElement('input');
  box.type = 'text';
  box.dataset.option = p.option.slice(2);
  box.placeholder = 'middle';
  box.addEventListener('change', () => Changed(box.dataset.option, box.value.trim()));
  row.appendChild(box);
  state.point = { option: box.dataset.option, percent: p.default_percent, box };
  return { defaultText: '', set: (text) => { box.value = text; } };
}

function BuildControls(declared) {
  $('controls').textContent = '';
  for (const p of declared.parameters) {
    let c = null;
    if (p.type === 'fixed_slider' || p.type === 'slider') {
      c = NumberControl(p, p.slider_min, p.slider_max, p.type === 'slider' ? 1 : Math.pow(10, -(p.precision || 0)));
    } else if (p.type === 'angle') {
      c = NumberControl(p, 0, 360, 1);
    } else if (p.type === 'popup') {
      c = PopupControl(p);
    } else if (p.type === 'point') {
      c = PointControl(p);
    }
    if (c) state.controls.set(p.option.slice(2), c);
  }
}

// The centre: where the point is now, in layer pixels.
function CenterPixels() {
  const pt = state.point;
  if (!pt) return null;
  const text = state.settings.get(pt.option);
  if (text) {
    const [x, y] = text.split(',').map(Number);
    return { x, y };
  }
  return { x: state.width * pt.percent[0] / 100, y: state.height * pt.percent[1] / 100 };
}

function PlaceHandle() {
  const c = CenterPixels();
  const canvas = $('picture');
  if (!c || !canvas.width) return;
  const scale = canvas.clientWidth / canvas.width;
  const h = $('handle');
  h.style.left = (canvas.offsetLeft + c.x * scale) + 'px';
  h.style.top = (canvas.offsetTop + c.y * scale) + 'px';
}

function DragCenter(e) {
  if (!state.point) return;
  const canvas = $('picture');
  const r = canvas.getBoundingClientRect();
  const x = Math.round(Math.min(Math.max((e.clientX - r.left) * canvas.width / r.width, 0), canvas.width));
  const y = Math.round(Math.min(Math.max((e.clientY - r.top) * canvas.height / r.height, 0), canvas.height));
  const text = `${x},${y}`;
  state.point.box.value = text;
  Changed(state.point.option, text);
  PlaceHandle();
}

// ---- the same settings for the command line, ffmpeg and melt

function Quote(s) { return /^[\w.,:=/+-]+$/.test(s) ? s : `'${s.replace(/'/g, `'\\''`)}'`; }

function ShowStrings() {
  const size = `${state.width}x${state.height}`;
  const parts = state.source === 'file'
    ? ['tarvo-ripple', Quote(state.fileName || 'input.png'), 'output.png']
    : ['tarvo-ripple', '--demo', 'ripple.png', '--size', size];
  for (const [name, text] of state.settings) parts.push('--' + name, Quote(text));
  if (state.time !== 0) parts.push('--time', String(state.time));
  // The command line renders a file at its own size only.
  const own = state.source === 'file' && state.file ? state.file.data : null;
  if (own && (own.width !== state.width || own.height !== state.height)) {
    parts.push(` # the page scales the picture from ${own.width}x${own.height} to ${size}; this renders it unscaled`);
  }
  $('cli').textContent = parts.join(' ');
  ShowFilterStrings();
}

// The frei0r filter's values for the last render, from the worker's host:
// ffmpeg takes them in order up to the last changed one, melt by name.
function ShowFilterStrings() {
  const values = state.filter;
  if (!values) return;
  let last = -1;
  values.forEach((v, i) => { if (v.changed) last = i; });
  const list = values.slice(0, last + 1).map((v) => (v.name === 'Draft' ? (v.value === '1' ? 'y' : 'n') : v.value));
  const filter = 'frei0r=filter_name=tarvo_ripple' + (list.length ? ':filter_params=' + list.join('|') : '');
  $('ffmpeg').textContent = `ffmpeg -i input.mp4 -vf ${Quote(filter)} output.mp4`;
  const named = values.filter((v) => v.changed).map((v) => Quote(`${v.name}=${v.value}`));
  $('melt').textContent = ['melt input.mp4 -filter frei0r.tarvo_ripple', ...named, '-consumer avformat:output.mp4'].join(' ');
  const near = values.filter((v) => !v.exact).map((v) => v.name);
  $('filter-note').textContent = (near.length ? `The filter cannot hold ${near.join(', ')} exactly; the nearest value is shown. ` : '') +
    'In the filter, time runs with the video.';
}

// ---- time

let playing = null;
function SetTime(t) {
  state.time = t;
  $('time').value = t;
  $('time-value').textContent = t;
  ShowStrings();
  Render();
}

function Play() {
  if (playing) {
    clearInterval(playing);
    playing = null;
    $('play').textContent = 'Play';
    return;
  }
  $('play').textContent = 'Pause';
  // One time step per frame at the time scale's rate; renders that cannot
  // keep up are dropped, so the picture shows the newest time it can.
  playing = setInterval(() => SetTime(state.time >= Number($('time').max) ? 0 : state.time + 1), 1000 / kTimeScale);
}

// ---- pictures from the user

// A frame's bytes as straight RGBA, or null when the frame is in another
// pixel format (YUV from a JPEG decoder, for instance).
async function FrameRgba(frame) {
  const format = frame.format;
  if (!['RGBA', 'RGBX', 'BGRA', 'BGRX'].includes(format) || frame.rotation || frame.flip) return null;
  const bytes = new Uint8ClampedArray(frame.allocationSize());
  await frame.copyTo(bytes);
  if (bytes.length !== frame.visibleRect.width * frame.visibleRect.height * 4) return null;
  for (let i = 0; i < bytes.length; i += 4) {
    if (format[0] === 'B') [bytes[i], bytes[i + 2]] = [bytes[i + 2], bytes[i]];
    if (format[3] === 'X') bytes[i + 3] = 255;
  }
  return new ImageData(bytes, frame.visibleRect.width, frame.visibleRect.height);
}

// A picture file decoded by the browser, at its own size, with the colour of
// every pixel as stored. A 2D canvas holds colour premultiplied by alpha,
// which changes pixels that are not opaque and loses the colour of
// transparent ones, so the bytes come from an image decoder told not to
// premultiply; the canvas remains for other pixel formats and browsers
// without one (exact for opaque pictures) and for scaling.
async function DecodePicture(file) {
  const bitmap = await createImageBitmap(file, { premultiplyAlpha: 'none', colorSpaceConversion: 'none' });
  let data = null;
  if (typeof ImageDecoder === 'function' && file.type && (await ImageDecoder.isTypeSupported(file.type))) {
    let decoder = null;
    try {  // a file whose name says another format than its bytes fails here
      decoder = new ImageDecoder({ data: await file.arrayBuffer(), type: file.type,
                                   premultiplyAlpha: 'none', colorSpaceConversion: 'none' });
      const { image } = await decoder.decode();
      data = await FrameRgba(image);
      image.close();
    } catch {
      data = null;
    } finally {
      decoder?.close();
    }
  }
  if (!data || data.width !== bitmap.width || data.height !== bitmap.height) {
    const ctx = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d');
    ctx.drawImage(bitmap, 0, 0);
    data = ctx.getImageData(0, 0, bitmap.width, bitmap.height);
  }
  return { name: file.name, data, bitmap };
}

// The picture becomes the input only when the worker has taken it: a file
// that cannot be decoded or is too large leaves the current picture, its
// settings and its strings as they were.
async function OpenFile(file) {
  let picture;
  try {
    picture = await DecodePicture(file);
  } catch (err) {
    return ShowError(`${file.name} is not a picture this browser can decode`, true);
  }
  const { width, height } = picture.data;
  Send(FileRequest(picture, width, height), (reply) => {
    if (reply.error) return ShowError(reply.error, true);
    state.source = 'file';
    state.fileName = file.name;
    state.file = picture;
    state.width = width;
    state.height = height;
    const src = $('source');
    let opt = src.querySelector('option[value=file]');
    if (!opt) { opt = document.createElement('option'); opt.value = 'file'; src.appendChild(opt); }
    opt.textContent = file.name;
    src.value = 'file';
    SetSizes(`${width}x${height}`);
    $('size').value = `${width}x${height}`;
    UseInput(reply);
  });
}

function SetSizes(own) {
  const select = $('size');
  select.textContent = '';
  for (const s of (own && !kSizes.includes(own) ? [own, ...kSizes] : kSizes)) {
    const o = document.createElement('option');
    o.value = s;
    o.textContent = s.replace('x', '×') + (s === own ? ' (the picture’s own)' : '');
    select.appendChild(o);
  }
}

function SetSize(text) {
  const [w, h] = text.split('x').map(Number);
  state.width = w;
  state.height = h;
  $('size').value = text;
  LoadInput();
}

// ---- PNG download: the rendered bytes, exactly

async function Download() {
  if (!state.output) return;
  const blob = await EncodePng(state.outputBytes, state.output.width, state.output.height);
  const a = document.createElement('a');
  a.href = URL.createObjectURL(blob);
  a.download = 'ripple.png';
  a.click();
  setTimeout(() => URL.revokeObjectURL(a.href), 1000);
}

// ---- start

function ApplyQuery() {
  const q = new URLSearchParams(location.search);
  if (q.has('demo')) {
    const size = q.get('demo');
    state.width = Number(size.split('x')[0]);
    state.height = Number(size.split('x')[1]);
  }
  state.digest = q.get('digest') === '1';
  for (const [name, text] of q) {
    if (name === 'demo' || name === 'digest') continue;
    if (name === 'time') { state.time = Number(text); $('time').value = text; $('time-value').textContent = text; continue; }
    state.settings.set(name, text);
    const c = state.controls.get(name);
    if (c) c.set(text);
  }
}

function Start() {
  SetSizes('');
  Send({ op: 'open' }, (reply) => {
    if (reply.error) return ShowError(reply.error);
    state.declared = reply.declared;
    BuildControls(reply.declared);
    ApplyQuery();
    $('size').value = `${state.width}x${state.height}`;
    LoadInput();
  });

  $('source').addEventListener('change', () => {
    state.source = $('source').value;
    if (state.source === 'demo') { SetSizes(''); SetSize('640x480'); } else { SetSize(`${state.file.data.width}x${state.file.data.height}`); }
  });
  $('file').addEventListener('change', () => { if ($('file').files[0]) OpenFile($('file').files[0]); });
  $('size').addEventListener('change', () => SetSize($('size').value));
  $('before').addEventListener('change', Show);
  $('download').addEventListener('click', Download);
  $('defaults').addEventListener('click', () => {
    for (const [name, c] of state.controls) c.set(c.defaultText);
    state.settings.clear();
    ShowStrings();
    Render();
  });
  $('time').addEventListener('input', () => SetTime(Number($('time').value)));
  $('play').addEventListener('click', Play);
  for (const b of document.querySelectorAll('[data-copy]')) {
    b.addEventListener('click', () => navigator.clipboard.writeText($(b.dataset.copy).textContent));
  }
  const stage = $('stage');
  let dragging = false;
  stage.addEventListener('pointerdown', (e) => { dragging = true; stage.setPointerCapture(e.pointerId); DragCenter(e); });
  stage.addEventListener('pointermove', (e) => { if (dragging) DragCenter(e); });
  stage.addEventListener('pointerup', () => { dragging = false; });
  stage.addEventListener('dragover', (e) => e.preventDefault());
  stage.addEventListener('drop', (e) => {
    e.preventDefault();
    if (e.dataTransfer.files[0]) OpenFile(e.dataTransfer.files[0]);
  });
  window.addEventListener('resize', PlaceHandle);
}

Start();
