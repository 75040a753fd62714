// What Spinlane's instrument and facility pages share: finding elements, the status colours'
// class names, times in the viewer's own time zone and table cells. Texts are set with
// textContent only, never as markup.
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
