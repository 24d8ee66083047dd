// The page's render worker: the plug-in and its host (studio.wasm) run
// here, so that a render never blocks the page. One request at a time; the
// page sends the next only when this one has answered.
'use strict';
importScripts('studio.js');

let studio = null;
let starting = null;

function Start() {
  if (!starting) starting = createStudio().then((m) => { studio = m; return m; });
  return starting;
}

function Text(ptr) { return studio.UTF8ToString(ptr); }

function WithString(s, fn) {
  const size = studio.lengthBytesUTF8(s) + 1;
  const ptr = studio._malloc(size);
  studio.stringToUTF8(s, ptr, size);
  try { return fn(ptr); } finally { studio._free(ptr); }
}

// The current input as straight RGBA, for the "before" view.
function InputReply() {
  const w = studio._StudioWidth(), h = studio._StudioHeight();
  const rgba = studio.HEAPU8.slice(studio._StudioInputRgba(), studio._StudioInputRgba() + w * h * 4);
  return { width: w, height: h, rgba: rgba.buffer };
}

function Handle(msg) {
  switch (msg.op) {
    case 'open': {
      const text = Text(studio._StudioOpen());
      if (text.startsWith('error: ')) return { error: text.slice(7) };
      return { declared: JSON.parse(text) };
    }
    case 'demo': {
      const bad = Text(studio._StudioUseDemo(msg.width, msg.height));
      return bad ? { error: bad } : InputReply();
    }
    case 'image': {
      const bad = Text(studio._StudioCheckSize(msg.width, msg.height));
      if (bad) return { error: `${msg.name || 'the picture'} ${bad}` };
      const ptr = studio._StudioInputBuffer(msg.width, msg.height);
      studio.HEAPU8.set(new Uint8Array(msg.rgba), ptr);
      studio._StudioUseInputBuffer();
      return InputReply();
    }
    case 'render': {
      const start = performance.now();
      const bad = WithString(msg.settings, (p) => Text(studio._StudioRender(p)));
      const ms = performance.now() - start;
      if (bad) return { error: bad };
      const w = studio._StudioWidth(), h = studio._StudioHeight();
      const ptr = studio._StudioOutputRgba();
      return { width: w, height: h, ms, rgba: studio.HEAPU8.slice(ptr, ptr + w * h * 4).buffer,
               filter: JSON.parse(Text(studio._StudioFilterValues())) };
    }
  }
  return { error: 'unknown request ' + msg.op };
}

onmessage = async (e) => {
  const msg = e.data;
  let reply;
  try {
    await Start();
    reply = Handle(msg);
  } catch (err) {
    // The program stopped (for example it ran out of memory): say so and
    // start a fresh one for the next request.
    reply = { error: 'the render stopped: ' + (err && err.message ? err.message : String(err)), restarted: true };
    studio = null;
    starting = null;
  }
  reply.id = msg.id;
  reply.op = msg.op;
  postMessage(reply, reply.rgba ? [reply.rgba] : []);
};
