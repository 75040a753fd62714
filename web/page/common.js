// What Spinlane's instrument and facility pages share: finding elements, the status colours'
// class names, times in the viewer's own time zone and how long until them, table cells, the remembered "my samples"
// field and the live channel. Texts are set with textContent only, never as markup.
'use strict';

const byId = (id) => document.getElementById(id);
const mineKey = 'spinlane.mySamples';

function statusClass(status) {
  return 'status-' + String(status).toLowerCase().replace(/[^a-z]+/g, '-');
}

// A time of the API in the viewer's own time zone and 12/24-hour convention, rounded to the
// nearest minute (the rule spinlane-status follows too); the date only when it is not today.
function localTime(iso) {
  if (!iso) return '';
  const exact = Date.parse(iso);
  if (isNaN(exact)) return '';
  const time = new Date(Math.round(exact / 60000) * 60000);
  const clock = time.toLocaleTimeString([], { hour: 'numeric', minute: '2-digit' });
  const today = new Date().toDateString() === time.toDateString();
  return today ? clock : time.toLocaleDateString([], { weekday: 'short', day: 'numeric',
                                                      month: 'short' }) + ' ' + clock;
}

// How long until `iso`, in whole minutes rounded as the clock times are: "in 25 min",
// "in 1 h 5 min"; "about 1 h 40 min" when the estimate is the lab's default for the experiment
// or the instrument's typical run rather than learned from the experiment's own past runs; "any
// minute now" once the time has come.
function untilText(iso, basis) {
  const at = Date.parse(iso);
  if (isNaN(at)) return '';
  const minutes = Math.round(at / 60000) - Math.round(Date.now() / 60000);
  if (minutes <= 0) return 'any minute now';
  const hours = Math.floor(minutes / 60);
  const span = (hours ? hours + ' h' + (minutes % 60 ? ' ' : '') : '') +
               (minutes % 60 ? (minutes % 60) + ' min' : '');
  return (basis === 'default' || basis === 'typical' ? 'about ' : 'in ') + span;
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
// A link with ?user=ID opens the page for that user (and is remembered like a typed ID).
function rememberMine(changed) {
  const field = byId('mine');
  try { field.value = localStorage.getItem(mineKey) || ''; } catch (e) { /* private mode */ }
  const linked = new URLSearchParams(location.search).get('user');
  if (linked !== null) {
    field.value = linked.trim();
    try { localStorage.setItem(mineKey, field.value); } catch (e) { /* private mode */ }
  }
  field.addEventListener('input', () => {
    try { localStorage.setItem(mineKey, field.value.trim()); } catch (e) { /* private mode */ }
    const user = field.value.trim();
    history.replaceState(null, '', user ? '?user=' + encodeURIComponent(user) : location.pathname);
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
