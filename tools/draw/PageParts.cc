#include "tools/draw/PageParts.h"

namespace Draw {

const char * const pageStyle = R"css(
body { margin: 0; height: 100vh; display: flex; flex-direction: column; font: 14px sans-serif; }
header { padding: 6px 12px; border-bottom: 1px solid #ccc; display: flex; gap: 12px; align-items: center; }
h1 { font-size: 16px; margin: 0; }
main { flex: 1; display: flex; min-height: 0; }
nav { width: 22em; overflow: auto; border-right: 1px solid #ccc; }
nav button { display: block; width: 100%; padding: 5px 10px; border: 0; border-left: 6px solid transparent;
   background: none; text-align: left; font: inherit; cursor: pointer; }
nav button:hover { background: #f0f0f0; }
nav button.lit { background: #eef4fa; }
nav small { display: block; color: #555; }
#when { flex: 0 1 24em; }
#text { white-space: pre-wrap; }
#picture { flex: 1; min-width: 0; overflow: hidden; cursor: grab; }
#picture svg { width: 100%; height: 100%; }
#lit { pointer-events: none; }
.edge { cursor: pointer; }
.edge path { pointer-events: stroke; }
.edge text { paint-order: stroke; stroke: white; stroke-width: 2px; }
)css";

const char * const pageControls = R"html(
<input id="when" type="range" min="0" value="0" aria-label="moment"><output id="text"></output>
)html";

// Everything that is shown follows from two things: the moment, and which paths are lit. Both
// stand behind the page's address, so that a link leads to what is seen.
const char * const pageScript = R"js(
const svg = document.querySelector('#picture svg');
const when = document.getElementById('when');
const group = id => document.getElementById(id);
const shape = id => group(id).querySelector('path, polygon, ellipse');
const asked = new URLSearchParams(location.hash.slice(1));
let moment = Math.min(Number(asked.get('moment') ?? 0) || 0, data.moments.length - 1);
let lit = asked.has('path') ? asked.getAll('path') : data.lit;

const at = (kind, name) => {
   const now = data.moments[moment][kind];
   return name in now ? now[name] : data.moments[0][kind][name] ?? null;
};
const names = [...new Set(data.moments.flatMap(one => Object.keys(one.routes)))].sort();
const colourOf = name => data.colours[lit.indexOf(name) % data.colours.length];
const element = (name, attributes) => {
   const made = document.createElementNS('http://www.w3.org/2000/svg', name);
   for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
   return made;
};

function showNetwork() {
   for (const id of Object.keys(data.moments[0].edges)) {
      const edge = at('edges', id), line = shape(id), label = group(id).querySelector('text');
      line.setAttribute('stroke', edge.up ? data.link : data.down);
      line.setAttribute('stroke-width', edge.width);
      group(id).classList.toggle('down', !edge.up);
      group(id).querySelector('title').textContent = edge.title;
      if (label) {
         label.textContent = edge.label;
         label.setAttribute('fill', edge.up ? '#555555' : data.down);
      }
   }
   for (const id of Object.keys(data.moments[0].nodes)) {
      const node = at('nodes', id);
      shape(id).setAttribute('stroke', node.up ? 'black' : data.down);
      group(id).classList.toggle('down', !node.up);
      group(id).querySelector('title').textContent = node.title;
   }
}

// Paths over one link lie side by side.
function beside(line, names, name) {
   const a = line.getPointAtLength(0), b = line.getPointAtLength(line.getTotalLength());
   const far = Math.hypot(b.x - a.x, b.y - a.y) || 1;
   const shift = 4.5 * (names.indexOf(name) - (names.length - 1) / 2) / far;
   return `translate(${(a.y - b.y) * shift} ${(b.x - a.x) * shift})`;
}

function showPaths() {
   document.getElementById('lit')?.remove();
   const layer = element('g', { id: 'lit' }), over = {};
   for (const name of lit) {
      for (const [id] of at('routes', name)?.steps ?? []) (over[id] ??= new Set()).add(name);
   }
   lit.forEach((name, order) => {
      const route = at('routes', name), colour = colourOf(name), arrow = 'arrow' + order;
      const marker = element('marker', { id: arrow, viewBox: '0 0 6 6', refX: 5, refY: 3, markerWidth: 11,
         markerHeight: 11, markerUnits: 'userSpaceOnUse', orient: 'auto-start-reverse' });
      marker.append(element('path', { d: 'M0 0 6 3 0 6z', fill: colour }));
      layer.append(marker);
      for (const [id, forward] of route?.steps ?? []) {
         const line = shape(id);
         layer.append(element('path', { 'data-path': name, 'data-edge': id, fill: 'none', stroke: colour,
            'stroke-width': route.repair ? 3 : 4, d: line.getAttribute('d'),
            'stroke-dasharray': route.repair ? '8 5' : 'none', transform: beside(line, [...over[id]], name),
            [forward ? 'marker-end' : 'marker-start']: `url(#${arrow})` }));
      }
      for (const id of route?.rings ?? []) {
         const box = shape(id).getBBox();
         layer.append(element('rect', { 'data-path': name, 'data-ring': id, fill: 'none', stroke: colour,
            'stroke-width': 2.5, rx: 8, x: box.x - 4, y: box.y - 4, width: box.width + 8,
            height: box.height + 8 }));
      }
   });
   // Beneath the labels; the lines that it covers step aside.
   const first = svg.querySelector('g.edge');
   first?.parentNode.insertBefore(layer, first);
   for (const id of Object.keys(over)) if (at('edges', id).up) shape(id).setAttribute('stroke', 'transparent');
}

function showList() {
   const list = document.getElementById('paths');
   list.replaceChildren(...names.map(name => {
      const button = document.createElement('button'), text = document.createElement('small');
      button.textContent = name;
      text.textContent = at('routes', name)?.text ?? 'withdrawn';
      button.append(text);
      button.classList.toggle('lit', lit.includes(name));
      button.setAttribute('aria-pressed', lit.includes(name));
      if (lit.includes(name)) button.style.borderLeftColor = colourOf(name);
      button.onclick = () => {
         lit = lit.includes(name) ? lit.filter(one => one !== name) : [...lit, name];
         show();
      };
      return button;
   }));
   list.hidden = names.length === 0;
}

function show() {
   when.value = moment;
   document.getElementById('text').textContent = data.moments[moment].text;
   showNetwork();
   showPaths();
   showList();
   const shown = new URLSearchParams([['moment', moment], ...lit.map(name => ['path', name])]);
   history.replaceState(null, '', '#' + shown);
}

when.max = data.moments.length - 1;
when.hidden = data.moments.length === 1;
when.oninput = () => { moment = Number(when.value); show(); };

// All that lead over a link light up, or go dark again.
for (const id of Object.keys(data.moments[0].edges)) {
   group(id).onclick = () => {
      const over = names.filter(name => at('routes', name)?.steps.some(([edge]) => edge === id));
      const dark = over.filter(name => !lit.includes(name));
      lit = dark.length ? [...lit, ...dark] : lit.filter(name => !over.includes(name));
      show();
   };
}

// The wheel draws nearer to where it turns, and the picture goes with the hand.
const view = svg.viewBox.baseVal, picture = document.getElementById('picture');
const scale = () => Math.max(view.width / picture.clientWidth, view.height / picture.clientHeight);
picture.addEventListener('wheel', event => {
   event.preventDefault();
   const factor = Math.exp(event.deltaY / 500), box = picture.getBoundingClientRect();
   const x = (event.clientX - box.left) / box.width, y = (event.clientY - box.top) / box.height;
   view.x += view.width * x * (1 - factor);
   view.y += view.height * y * (1 - factor);
   view.width *= factor;
   view.height *= factor;
}, { passive: false });
picture.addEventListener('pointermove', event => {
   if (event.buttons !== 1) return;
   view.x -= event.movementX * scale();
   view.y -= event.movementY * scale();
});
show();
)js";

}
