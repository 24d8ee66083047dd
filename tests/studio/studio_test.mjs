// The studio page in headless Chromium against the command line: its
// renders have tarvo-ripple's bytes, its controls are the declared
// parameters at their defaults, a slider move re-renders; a picture opened
// or dropped, its download, before/after, play and a centre drag give the
// command line's bytes too, and a picture too large is refused, keeping the
// one shown. Prints the page's and the native 640x480 render times
// (measured, not judged).
// Its ffmpeg string, run in ffmpeg with the frei0r filter, gives the same
// bytes too (when ffmpeg is installed and FREI0R_DIR is not "-").
//   node --experimental-websocket studio_test.mjs STUDIO_DIR TARVO_RIPPLE TIME_PROGRAM FREI0R_DIR [SCREENSHOT.png]
import { spawn, execFileSync } from 'node:child_process';
import crypto from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import zlib from 'node:zlib';
import { createRequire } from 'node:module';
import { Serve } from '../../apps/studio/serve.mjs';

const [studioDir, cliArg, timeProgram, frei0rDir, screenshot] = process.argv.slice(2);
const cli = path.resolve(cliArg);  // also run from the temporary folder
const tmp = fs.mkdtempSync(path.join(os.tmpdir(), 'tarvo-studio-'));
let failures = 0;
function Check(ok, what) {
  console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}`);
  if (!ok) failures++;
}

// sha256 of a PNG's RGBA bytes, row by row (8-bit RGBA as tarvo-ripple writes it).
function PngDigest(file) {
  const png = fs.readFileSync(file);
  let pos = 8, width = 0, height = 0;
  const idat = [];
  while (pos < png.length) {
    const len = png.readUInt32BE(pos), type = png.toString('ascii', pos + 4, pos + 8);
    const data = png.subarray(pos + 8, pos + 8 + len);
    if (type === 'IHDR') {
      width = data.readUInt32BE(0);
      height = data.readUInt32BE(4);
      if (data[8] !== 8 || data[9] !== 6 || data[12] !== 0) throw new Error(`${file}: not 8-bit RGBA, non-interlaced`);
    } else if (type === 'IDAT') {
      idat.push(data);
    }
    pos += 12 + len;
  }
  const raw = zlib.inflateSync(Buffer.concat(idat));
  const stride = width * 4, out = Buffer.alloc(stride * height);
  for (let y = 0; y < height; y++) {
    const filter = raw[y * (stride + 1)], src = raw.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    for (let x = 0; x < stride; x++) {
      const a = x >= 4 ? out[y * stride + x - 4] : 0, b = y > 0 ? out[(y - 1) * stride + x] : 0;
      const c = x >= 4 && y > 0 ? out[(y - 1) * stride + x - 4] : 0;
      let p = a;
      if (filter === 0) p = 0;
      else if (filter === 2) p = b;
      else if (filter === 3) p = (a + b) >> 1;
      else if (filter === 4) {
        const pa = Math.abs(b - c), pb = Math.abs(a - c), pc = Math.abs(a + b - 2 * c);
        p = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      }
      out[y * stride + x] = (src[x] + p) & 0xff;
    }
  }
  return 'sha256:' + crypto.createHash('sha256').update(out).digest('hex');
}

// A PNG file of 8-bit RGBA (colorType 6) or RGB (2) rows, filter 0.
function Png(width, height, pixels, colorType = 6) {
  const Chunk = (type, data) => {
    const out = Buffer.alloc(12 + data.length);
    out.writeUInt32BE(data.length, 0);
    out.write(type, 4, 'ascii');
    data.copy(out, 8);
    out.writeUInt32BE(zlib.crc32(out.subarray(4, 8 + data.length)), 8 + data.length);
    return out;
  };
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header.set([8, colorType], 8);
  const row = pixels.length / height, raw = Buffer.alloc((row + 1) * height);
  for (let y = 0; y < height; y++) pixels.copy(raw, y * (row + 1) + 1, y * row, (y + 1) * row);
  return Buffer.concat([Buffer.from([137, 80, 78, 71, 13, 10, 26, 10]), Chunk('IHDR', header),
                        Chunk('IDAT', zlib.deflateSync(raw)), Chunk('IEND', Buffer.alloc(0))]);
}

// The command line's render of input (the demo picture at size when input
// starts with a digit) with settings.
function NativeDigest(input, settings) {
  const file = path.join(tmp, 'native.png');
  const args = /^\d/.test(input) ? ['--demo', file, '--size', input] : [path.join(tmp, input), file];
  for (const [name, value] of Object.entries(settings)) args.push('--' + name, value);
  execFileSync(cli, args, { stdio: ['ignore', 'ignore', 'inherit'] });
  return PngDigest(file);
}

// ---- Chromium over the DevTools protocol

const chrome = spawn('chromium', [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
  `--user-data-dir=${path.join(tmp, 'profile')}`, '--remote-debugging-port=0', '--window-size=1360,900',
  'about:blank'], { stdio: ['ignore', 'ignore', 'pipe'] });
const wsUrl = await new Promise((resolve, reject) => {
  let text = '';
  const timer = setTimeout(() => reject(new Error('chromium did not open its DevTools port:\n' + text)), 30000);
  chrome.stderr.on('data', (d) => {
    text += d;
    const m = /DevTools listening on (ws:\S+)/.exec(text);
    if (m) { clearTimeout(timer); resolve(m[1]); }
  });
  chrome.on('exit', (code) => reject(new Error(`chromium exited (${code}):\n${text}`)));
});

const Socket = globalThis.WebSocket || createRequire(import.meta.url)('ws');
const ws = new Socket(wsUrl);
await new Promise((resolve, reject) => { ws.onopen = resolve; ws.onerror = () => reject(new Error('DevTools connection failed')); });
let lastId = 0;
const pending = new Map();
const events = [];
ws.onmessage = (e) => {
  const msg = JSON.parse(e.data);
  if (msg.method) events.push(msg);
  if (msg.id && pending.has(msg.id)) {
    const { resolve, reject } = pending.get(msg.id);
    pending.delete(msg.id);
    if (msg.error) reject(new Error(JSON.stringify(msg.error)));
    else resolve(msg.result);
  }
};
function Cdp(method, params = {}, sessionId) {
  const id = ++lastId;
  ws.send(JSON.stringify({ id, method, params, sessionId }));
  return new Promise((resolve, reject) => pending.set(id, { resolve, reject }));
}

const server = await Serve(studioDir, 0);
const base = `http://127.0.0.1:${server.address().port}/index.html`;
const { targetId } = await Cdp('Target.createTarget', { url: 'about:blank' });
const { sessionId } = await Cdp('Target.attachToTarget', { targetId, flatten: true });
const Eval = async (expr) => {
  const r = await Cdp('Runtime.evaluate', { expression: expr, returnByValue: true, awaitPromise: true }, sessionId);
  if (r.exceptionDetails) throw new Error(`${expr}: ${r.exceptionDetails.exception?.description || r.exceptionDetails.text}`);
  return r.result.value;
};
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
// The page's digest once `ready` (JavaScript over its fields d) holds, or
// its error.
async function DigestWhen(ready) {
  for (let i = 0; i < 1200; i++) {
    const d = await Eval(`(() => { const e = document.getElementById('digest'), d = e ? e.dataset : {};
      return e && (e.textContent.startsWith('error') || (e.textContent.startsWith('sha256:') && (${ready}))) ? e.textContent : ''; })()`);
    if (d) return d;
    await sleep(50);
  }
  return 'timeout';
}
// The digest once the page has finished at least `renders` renders.
const Digest = (renders = 1) => DigestWhen(`Number(d.renders) >= ${renders}`);
// Does action (an async function) and returns the digest of the next picture
// the page shows for which `ready` holds.
async function Act(action, ready = 'true') {
  const shown = await Eval(`Number(document.getElementById('digest').dataset.shown || 0)`);
  await action();
  return DigestWhen(`Number(d.shown) > ${shown} && (${ready})`);
}
const Click = (id) => () => Eval(`document.getElementById('${id}').click()`);
const Drop = (name) => () => Eval(`(() => { const dt = new DataTransfer();
  const bytes = Uint8Array.from(atob('${fs.readFileSync(path.join(tmp, name)).toString('base64')}'), (c) => c.charCodeAt(0));
  dt.items.add(new File([bytes], '${name}', { type: 'image/png' }));
  document.getElementById('stage').dispatchEvent(new DragEvent('drop', { dataTransfer: dt, bubbles: true, cancelable: true })); })()`);
async function Until(expr) {
  for (let i = 0; i < 600 && !(await Eval(expr)); i++) await sleep(50);
  return Eval(expr);
}
async function Open(query) {
  await Cdp('Page.navigate', { url: `${base}?${query}` }, sessionId);
  await sleep(100);
}

let exitCode = 1;
try {
  // Renders: the page's digest equals the command line's for the same settings.
  const cases = [
    ['area sampling, defaults', '640x480', {}],
    ['bilinear', '320x240', { antialias: 'med', radius: '40' }],
    ['nearest (low antialias at draft quality)', '257x191', { antialias: 'low', quality: 'low', 'wave-height': '12' }],
    ['rotated stretch, Hyper Twirl', '320x240', { stretch: '55', 'stretch-angle': '30', twirl: 'hyper-twirl', 'angular-wave-height': '4' }],
    ['chaos blend', '320x240', { waveform: 'spectrum-3', chaos: '75', 'chaos-blend': '60' }],
    ['pin mode, centre moved', '300x200', { 'pin-mode': 'pin-left', center: '90,70.5', radius: '60' }],
    ['time 7 with frequency', '320x240', { time: '7', frequency: '25', waveform: 'triangle', phase: '45' }],
  ];
  for (const [what, size, settings] of cases) {
    await Open(new URLSearchParams({ demo: size, digest: '1', ...settings }).toString());
    const page = await Digest();
    const native = NativeDigest(size, settings);
    Check(page === native, `${what} ${size}: page ${page.slice(0, 20)}… native ${native.slice(0, 20)}…`);
  }

  // Errors reach the page as the command line words them.
  await Open('demo=64x48&digest=1&radius=400');
  const refused = await Digest();
  Check(refused.startsWith('error: --radius 400 is outside'), `an out-of-range value is shown: ${refused}`);

  // The page's ffmpeg string on the page's input picture gives the page's bytes.
  const ffmpegSettings = { radius: '40', center: '100,90.25', twirl: 'twirl', 'wave-height': '6', phase: '30', antialias: 'med' };
  await Open(new URLSearchParams({ demo: '320x240', digest: '1', ...ffmpegSettings }).toString());
  const pageDigest = await Digest();
  const ffmpegLine = await Eval(`document.getElementById('ffmpeg').textContent`);
  let ffmpegFound = true;
  try { execFileSync('ffmpeg', ['-version'], { stdio: 'ignore' }); } catch { ffmpegFound = false; }
  if (frei0rDir === '-' || !ffmpegFound) {
    console.log(`skip ffmpeg string (ffmpeg or the frei0r filter not built): ${ffmpegLine}`);
  } else {
    const input = Buffer.from(await Eval(`(() => { const b = state.input.data; let s = '';
      for (let i = 0; i < b.length; i += 8192) s += String.fromCharCode(...b.subarray(i, i + 8192));
      return btoa(s); })()`), 'base64');
    fs.writeFileSync(path.join(tmp, 'in.rgba'), input);
    const filter = /-vf '([^']*)'/.exec(ffmpegLine)[1];
    execFileSync('ffmpeg', ['-v', 'error', '-f', 'rawvideo', '-pix_fmt', 'rgba', '-s', '320x240', '-i', path.join(tmp, 'in.rgba'),
      '-vf', filter, '-f', 'rawvideo', '-pix_fmt', 'rgba', '-y', path.join(tmp, 'out.rgba')],
      { env: { ...process.env, FREI0R_PATH: frei0rDir }, stdio: ['ignore', 'ignore', 'inherit'] });
    const ffmpegDigest = 'sha256:' + crypto.createHash('sha256').update(fs.readFileSync(path.join(tmp, 'out.rgba'))).digest('hex');
    Check(ffmpegDigest === pageDigest, `ffmpeg string ${filter}: ffmpeg ${ffmpegDigest.slice(0, 20)}… page ${pageDigest.slice(0, 20)}…`);
  }

  // Controls: the sixteen declared parameters, in order, at their defaults.
  await Open('demo=160x120&digest=1');
  await Digest();
  const declared = JSON.parse(execFileSync(cli, ['--list-params', '--json'], { encoding: 'utf8' })).parameters;
  const controls = await Eval(`[...document.querySelectorAll('#controls [data-option]')].map((e) => [e.dataset.option, e.value])`);
  const expected = declared.map((p) => [p.option.slice(2), p.type === 'point' ? ''
    : p.type === 'popup' ? p.entries.find((e) => e.value === p.default).option_value
    : String(p.default)]);
  Check(controls.length === 16 && JSON.stringify(controls) === JSON.stringify(expected),
        `16 controls at their declared defaults: ${JSON.stringify(controls)}`);

  // Moving a slider renders again, with the command line's bytes.
  await Eval(`(() => { const r = document.querySelector('[data-option=radius]').previousElementSibling;
    r.value = '60'; r.dispatchEvent(new Event('input')); })()`);
  const moved = await Digest(2);
  Check(moved === NativeDigest('160x120', { radius: '60' }), `a radius slider move re-renders: ${moved.slice(0, 20)}…`);

  // Pictures of the user's, opened and dropped, render as the command line
  // renders the same file: colour as stored where alpha is below 255 or 0.
  const pixels = Buffer.alloc(97 * 73 * 4);
  for (let i = 0; i < pixels.length; i += 4) {
    const x = (i / 4) % 97, y = Math.floor(i / 4 / 97);
    pixels.set([x * 7, y * 13, x * y, (x + 3 * y) * 2].map((v) => v & 255), i);
  }
  fs.writeFileSync(path.join(tmp, 'alpha.png'), Png(97, 73, pixels));
  fs.writeFileSync(path.join(tmp, 'opaque.png'), Png(64, 48, Buffer.from(Array.from({ length: 64 * 48 * 3 }, (_, i) => (i * 37) >> 4 & 255)), 2));
  fs.writeFileSync(path.join(tmp, 'wide.png'), Png(4096, 2, Buffer.alloc(4096 * 2 * 4)));
  const settings = { 'wave-height': '9', radius: '35', phase: '20', frequency: '37' };
  await Open(new URLSearchParams({ demo: '160x120', digest: '1', ...settings }).toString());
  await Digest();
  const input = await Cdp('Runtime.evaluate', { expression: `document.getElementById('file')` }, sessionId);
  const opened = await Act(() => Cdp('DOM.setFileInputFiles', { files: [path.join(tmp, 'alpha.png')], objectId: input.result.objectId }, sessionId));
  Check(opened === NativeDigest('alpha.png', settings), `a picture opened with alpha renders as the command line: ${opened.slice(0, 20)}…`);

  // Before shows the picture's own pixels, after the render again.
  const before = await Act(Click('before')), after = await Act(Click('before'));
  Check(before === 'sha256:' + crypto.createHash('sha256').update(pixels).digest('hex') && after === opened,
        `before/after: ${before.slice(0, 20)}…, then ${after.slice(0, 20)}…`);

  // The PNG download holds the rendered pixels.
  const downloads = path.join(tmp, 'downloads');
  await Cdp('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: downloads, eventsEnabled: true });
  await Click('download')();
  for (let i = 0; i < 600 && !events.some((e) => e.method === 'Browser.downloadProgress' && e.params.state !== 'inProgress'); i++) await sleep(50);
  const download = path.join(downloads, 'ripple.png');
  const downloaded = fs.existsSync(download) ? PngDigest(download) : 'no file';
  Check(downloaded === opened, `the PNG download decodes to the render: ${downloaded.slice(0, 20)}…`);

  // Dragging the centre sets the Center control to the point let go at.
  const box = await Eval(`(() => { const r = document.getElementById('picture').getBoundingClientRect(); return [r.left, r.top, r.width / 97]; })()`);
  const Mouse = (type, x, y) => Cdp('Input.dispatchMouseEvent', { type, x: box[0] + x * box[2], y: box[1] + y * box[2],
    button: 'left', buttons: type === 'mouseReleased' ? 0 : 1, clickCount: 1 }, sessionId);
  const dragged = await Act(async () => {
    await Mouse('mousePressed', 20, 15);
    await Mouse('mouseMoved', 50, 30);
    await Mouse('mouseMoved', 80, 50);
    await Mouse('mouseReleased', 80, 50);
  }, `d.settings.split('\\n').includes('center=80,50')`);
  const Center = () => Eval(`document.querySelector('[data-option=center]').value`);
  Check((await Center()) === '80,50' && dragged === NativeDigest('alpha.png', { ...settings, center: '80,50' }),
        `a centre drag to 80,50: control ${await Center()}, render ${dragged.slice(0, 20)}…`);

  // A smaller picture dropped keeps the centre inside it.
  const dropped = await Act(Drop('opaque.png'));
  const center = await Center();
  Check(dropped === NativeDigest('opaque.png', { ...settings, center }), `a dropped picture, centre ${center}: ${dropped.slice(0, 20)}…`);

  // Play runs the time on; paused, the page shows the command line's frame
  // at that time (frequency 37 repeats a frame only every 30 steps).
  await Click('play')();
  await Until(`Number(document.getElementById('time').value) >= 3`);
  await Click('play')();
  const time = await Eval(`document.getElementById('time').value`);
  const played = await DigestWhen(`d.settings.split('\\n').includes('time=${time}')`);
  Check(Number(time) >= 3 && played !== dropped && played === NativeDigest('opaque.png', { ...settings, center, time }),
        `play to time ${time}: ${played.slice(0, 20)}…`);

  // A picture too large is refused as the command line refuses it; the
  // picture shown and its command line stay.
  const line = await Eval(`document.getElementById('cli').textContent`);
  await Drop('wide.png')();
  const refusal = await Until(`document.getElementById('error').textContent`);
  const kept = await Eval(`[document.getElementById('digest').textContent, document.getElementById('cli').textContent]`);
  let native = '';
  try { execFileSync(cli, ['wide.png', 'out.png'], { cwd: tmp, stdio: 'pipe' }); } catch (err) { native = String(err.stderr); }
  Check(refusal !== '' && native.includes(refusal) && kept[0] === played && kept[1] === line,
        `a 4096x2 picture: "${refusal}" (command line: ${native.trim()}), picture kept: ${kept[0] === played}`);

  // The page at its defaults, for the README, once its render is shown.
  if (screenshot) {
    await Open('');
    await Until(`document.getElementById('status').dataset.ms`);
    await sleep(500);
    const shot = await Cdp('Page.captureScreenshot', { format: 'png' }, sessionId);
    fs.writeFileSync(screenshot, Buffer.from(shot.data, 'base64'));
  }

  // Render times at 640x480, defaults: the page's worker against the native host.
  await Open('demo=640x480&digest=1');
  await Digest(1);
  const times = [];
  for (let t = 1; t <= 15; t++) {
    await Eval(`(() => { const r = document.getElementById('time'); r.value = '${t}'; r.dispatchEvent(new Event('input')); })()`);
    await Digest(t + 1);
    times.push(Number(await Eval(`document.getElementById('status').dataset.ms`)));
  }
  times.sort((a, b) => a - b);
  const page = { median: times[Math.floor(times.length / 2)], fastest: times[0] };
  const [median, fastest] = execFileSync(timeProgram, ['640x480', '15'], { encoding: 'utf8' }).trim().split(' ').map(Number);
  console.log(`640x480 default render, median (fastest): page (WebAssembly) ${page.median.toFixed(2)} ms ` +
              `(${page.fastest.toFixed(2)}), native one thread ${median.toFixed(2)} ms (${fastest.toFixed(2)}), ` +
              `ratio ${(page.median / median).toFixed(2)} (${(page.fastest / fastest).toFixed(2)})`);
  exitCode = failures ? 1 : 0;
} catch (err) {
  console.error(`studio test: ${err.stack || err}`);
} finally {
  ws.close();
  server.close();
  chrome.kill();
  await new Promise((r) => (chrome.exitCode !== null ? r() : chrome.once('exit', r)));
  fs.rmSync(tmp, { recursive: true, force: true, maxRetries: 10, retryDelay: 200 });
}
process.exit(exitCode);
