// What Spinlane's instrument and facility pages share: finding elements, the status colours'
// class names, times in the viewer's own time zone, table cells, the remembered "my samples"
// field and the live channel. Texts are set with textContent only, never as markup.
'use strict';

const byId = (id) => document.getElementById(id);
const mineKey = 'spinlane.mySamples';

function statusClass(status) {
  return 'status-' + String(status).toLowerCase().replace(/[^a-z]+/g, '-');
}

// A time of the API in the viewer's own time zone; the date only when it is not today.
function localTime(iso) {
  if (!iso) return '';
  const time = new Date(iso);
  if (isNaN(time)) return '';
  const clock = time.toLocaleTimeString([], { hour: '2-digit', minute: '2-digit' });
  const today = new Date().toDateString() === time.toDateString();
  return today ? clock : time.toLocaleDateString([], { weekday: 'short', day: 'numeric',
                                                      month: 'short' }) + ' ' + clock;
}

function number(n) { return String(n).padStart(3, '0'); }

function cell(row, text, className) {
  const td = row.insertCell();
  td.textContent = text;
  if (className) td.className = className;
  return td;
}

// The "my samples" field keeps its value in the browser (where private mode allows it);
// `changed` runs after every edit.
function rememberMine(changed) {
  const field = byId('mine');
  try { field.value = localStorage.getItem(mineKey) || ''; } catch (e) { /* private mode */ }
  field.addEventListener('input', () => {
    try { localStorage.setItem(mineKey, field.value.trim()); } catch (e) { /* private mode */ }
    changed();
  });
}

// Follows the live channel: `take` gets every message that reads as JSON. A lost connection shows
// the notice and is tried again, sooner at first, until it is back.
function followLive(take) {
  let retryMs = 1000;
  const connect = () => {
    const scheme = location.protocol === 'https:' ? 'wss:' : 'ws:';
    const socket = new WebSocket(scheme + '//' + location.host + '/api/v1/live');
    socket.onopen = () => { retryMs = 1000; byId('connection').hidden = true; };
    socket.onmessage = (event) => {
      let message;
      try { message = JSON.parse(event.data); } catch (e) { return; }
      if (message) take(message);
    };
    socket.onclose = () => {
      byId('connection').hidden = false;
      setTimeout(connect, retryMs);
      retryMs = Math.min(retryMs * 2, 5000);
    };
  };
  connect();
}
