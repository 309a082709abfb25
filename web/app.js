'use strict';
// The network at a glance, from the service's API (docs/service.md). Everything comes from the
// service that serves this page: nothing is fetched from anywhere else.

const $ = (sel) => document.querySelector(sel);
const state = { token: sessionStorage.getItem('qk-token') || '', lines: [], kinds: [], view: 'network',
  journal: { offset: 0, params: {} }, runs: { offset: 0 }, failingSince: null };
const REFRESH_MS = 2000;

function esc(text) {
  return String(text ?? '').replace(/[&<>"']/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&#39;' }[c]));
}
function when(iso) {
  if (!iso) return 'never';
  const d = new Date(iso);
  return isNaN(d) ? iso : d.toLocaleString();
}

// A request to the service; JSON back, or an Error with the service's message.
async function api(path, options = {}) {
  const headers = Object.assign({}, options.headers || {});
  if (state.token) headers.Authorization = 'Bearer ' + state.token;
  const res = await fetch(path, Object.assign({}, options, { headers }));
  if (res.status === 401) $('#token-box').hidden = false;
  if (!res.ok) {
    let message = res.status + ' ' + res.statusText;
    try { message = (await res.json()).error || message; } catch (e) { /* not JSON */ }
    const err = new Error(message);
    err.status = res.status;
    throw err;
  }
  const type = res.headers.get('Content-Type') || '';
  return type.startsWith('application/json') ? res.json() : res.blob();
}
function post(path) {
  return api(path, { method: 'POST', headers: { 'Content-Type': 'application/x-www-form-urlencoded' }, body: '' });
}

function reachable(ok) {
  if (ok) {
    state.failingSince = null;
    $('#unreachable').hidden = true;
    return;
  }
  state.failingSince = state.failingSince || new Date();
  $('#unreachable-since').textContent = ' since ' + state.failingSince.toLocaleTimeString();
  $('#unreachable').hidden = false;
}

function lineState(l) {
  if (l.syncing) return 'syncing';
  if (l.failures > 0) return 'failing';
  if (!l.address) return 'unaddressed';
  return l.pending > 0 ? 'pending' : 'ok';
}

function renderGrid() {
  const lines = state.lines;
  const numbers = [...new Set(lines.map((l) => l.line))].sort((a, b) => a - b);
  const depts = [...new Set(lines.map((l) => l.dept))].sort((a, b) => a - b);
  $('#grid thead').innerHTML = '<tr><th>department</th>' + numbers.map((n) => `<th>line ${n}</th>`).join('') + '</tr>';
  $('#grid tbody').innerHTML = depts.map((d) => '<tr>' + `<th class="dept">department ${d}</th>` + numbers.map((n) => {
    const l = lines.find((x) => x.dept === d && x.line === n);
    if (!l) return '<td class="empty"></td>';
    const st = lineState(l);
    const error = l.last_error ? `<div class="error">${esc(l.last_error)}${l.next_retry_seconds ? ` (again in ${Math.round(l.next_retry_seconds)} s)` : ''}</div>` : '';
    return `<td class="cell state-${st}" data-dept="${d}" data-line="${n}" data-state="${st}" data-label="line ${n}">
      <div class="family">${esc(l.family)} · scale ${l.scale}</div>
      <div><span class="pending">${l.pending}</span> pending</div>
      <div class="when">last delivery: ${esc(when(l.last_success))}</div>
      <div class="when">${l.address ? esc(l.address) : 'no address'}</div>${error}
      <button class="send" ${l.address ? '' : 'disabled'}>send now</button> <a class="details" href="#line/${d}/${n}">records</a></td>`;
  }).join('') + '</tr>').join('');
}

async function refresh() {
  try {
    const [status, lines] = await Promise.all([api('/api/status'), api('/api/lines')]);
    reachable(true);
    state.lines = lines;
    if (state.view === 'journal') recordActions();
    if (!state.kinds.length && status.kinds) {
      state.kinds = status.kinds;
      $('#journal-filters select[name=kind]').innerHTML += status.kinds.map((k) => `<option>${esc(k)}</option>`).join('');
    }
    $('#store').textContent = status.store ? '· ' + status.store : '';
    const s = status.service;
    $('#service').textContent = `${s.state} · ${s.lines} lines · ${s.pending} records pending · ${s.syncing} syncing · ${s.failing} failing · ${status.archive}`;
    renderGrid();
  } catch (e) {
    reachable(e.status !== undefined);
  }
  setTimeout(refresh, REFRESH_MS);
}

$('#grid').addEventListener('click', async (ev) => {
  const button = ev.target.closest('button.send');
  if (!button) return;
  const cell = button.closest('.cell');
  const where = `department ${cell.dataset.dept}, line ${cell.dataset.line}`;
  try {
    await post(`/api/lines/${cell.dataset.dept}/${cell.dataset.line}/sync`);
    $('#message').textContent = `${where}: a sync was asked for`;
  } catch (e) {
    $('#message').textContent = `${where}: ${e.message}`;
  }
});

async function showLine(dept, line) {
  $('#line-title').textContent = `Department ${dept}, line ${line}: pending records`;
  const body = $('#line-pending tbody');
  try {
    const l = await api(`/api/lines/${dept}/${line}/pending`);
    body.innerHTML = l.records.length ? l.records.map((r) => `<tr><td>${esc(r.kind)}</td><td>${esc(r.label)}</td><td>${esc(r.flags || r.reason)}</td>
      <td><a class="record" href="#journal?dept=${dept}&kind=${encodeURIComponent(r.kind)}&id=${r.id}">history</a></td></tr>`).join('')
      : '<tr><td colspan="4">nothing pending</td></tr>';
  } catch (e) {
    body.innerHTML = `<tr><td colspan="4" class="error">${esc(e.message)}</td></tr>`;
  }
}

function fillRows(table, rows, cells) {
  $(table + ' tbody').innerHTML = rows.length ? rows.map((r) => '<tr>' + cells(r).map((c) => `<td>${c}</td>`).join('') + '</tr>').join('')
    : `<tr><td colspan="9">no rows</td></tr>`;
}

// A record's history (the journal of one department's record) can send the record again.
function recordActions() {
  const p = state.journal.params;
  const lines = state.lines.filter((l) => String(l.dept) === p.dept).map((l) => l.line);
  $('#record-actions').hidden = !(p.dept && p.kind && p.id && lines.length);
  const options = lines.map((n) => `<option>${n}</option>`).join('');
  if ($('#record-line').innerHTML !== options) $('#record-line').innerHTML = options;
}
$('#record-again').addEventListener('click', async () => {
  const p = state.journal.params;
  const q = new URLSearchParams({ line: $('#record-line').value, dept: p.dept, kind: p.kind, id: p.id });
  try {
    const r = await post('/api/mark?' + q);
    $('#record-message').textContent = `${r.rows + r.records} marked pending`;
  } catch (e) {
    $('#record-message').textContent = e.message;
  }
});

async function showJournal() {
  const params = new URLSearchParams(Object.entries(state.journal.params).filter(([, v]) => v !== ''));
  params.set('offset', state.journal.offset);
  params.set('limit', 50);
  try {
    const page = await api('/api/journal?' + params);
    $('#journal-error').textContent = '';
    fillRows('#journal', page.rows, (r) => [esc(r.J_TIME), r.J_BNC, r.J_LINE, r.J_SCALE, esc(r.J_FAMILY), esc(r.J_KIND),
      `<a class="record" href="#journal?dept=${r.J_BNC}&kind=${encodeURIComponent(r.J_KIND)}&id=${r.J_ID}">${r.J_ID}</a>`, r.J_LENGTH,
      `<span class="hash" title="${esc(r.J_HASH)}">${esc(r.J_HASH.slice(0, 16))}</span>`]);
    $('#journal-older').disabled = !page.more;
    $('#journal-newer').disabled = state.journal.offset === 0;
  } catch (e) {
    $('#journal-error').textContent = e.message;
  }
}

async function showRuns() {
  try {
    const page = await api(`/api/runs?limit=50&offset=${state.runs.offset}`);
    fillRows('#runs', page.rows, (r) => [esc(r.RUN_START), esc(r.RUN_END || '-'), r.RUN_LINE, r.RUN_RECORDS, r.RUN_BYTES,
      esc(r.RUN_OUTCOME), esc(r.RUN_BY), `<span class="error">${esc(r.RUN_ERROR)}</span>`]);
    $('#runs-older').disabled = !page.more;
    $('#runs-newer').disabled = state.runs.offset === 0;
  } catch (e) {
    fillRows('#runs', [], () => []);
  }
}

async function pictureFigure(path, caption) {
  const fig = document.createElement('figure');
  fig.innerHTML = `<figcaption>${esc(caption)}</figcaption>`;
  try {
    const img = document.createElement('img');
    img.src = URL.createObjectURL(await api(path));
    img.alt = caption;
    fig.prepend(img);
  } catch (e) {
    fig.innerHTML += `<p class="error">${esc(e.message)}</p>`;
  }
  return fig;
}

async function showPictures() {
  const form = new FormData($('#pictures-form'));
  const dept = form.get('dept');
  const box = $('#pictures');
  box.innerHTML = '';
  try {
    const [layouts, images] = await Promise.all([api(`/api/layouts?dept=${dept}`), api(`/api/images?dept=${dept}`)]);
    $('#pictures-error').textContent = layouts.length + images.length ? '' : `department ${dept} has no layouts and no images`;
    for (const t of layouts)
      box.append(await pictureFigure(`/api/layouts/${dept}/${t.TK_ID}.svg?family=${form.get('family')}`, `layout ${t.TK_ID}: ${t.TK_DESCRIPTION}`));
    for (const i of images)
      box.append(await pictureFigure(`/api/images/${dept}/${i.IM_ID}.png?kind=${form.get('kind')}`, `image ${i.IM_ID}: ${i.IM_DESCRIPTION} (${i.IM_FILE_NAME})`));
  } catch (e) {
    $('#pictures-error').textContent = e.message;
  }
}

// The view named by the address: #network, #line/D/L, #journal?dept=…&kind=…&id=…, #runs, #pictures.
function route() {
  const [name, query] = (location.hash.slice(1) || 'network').split('?');
  const parts = name.split('/');
  state.view = parts[0];
  for (const section of document.querySelectorAll('main > section'))
    section.hidden = section.id !== 'view-' + state.view;
  for (const a of document.querySelectorAll('nav a'))
    a.classList.toggle('active', a.dataset.view === state.view);
  if (state.view === 'line') showLine(parts[1], parts[2]);
  if (state.view === 'journal') {
    state.journal.params = Object.fromEntries(new URLSearchParams(query || ''));
    state.journal.offset = 0;
    const form = $('#journal-filters');
    for (const field of form.elements) if (field.name) field.value = state.journal.params[field.name] || '';
    $('#record-message').textContent = '';
    recordActions();
    showJournal();
  }
  if (state.view === 'runs') showRuns();
  if (state.view === 'pictures') showPictures();
}
window.addEventListener('hashchange', route);

$('#journal-filters').addEventListener('submit', (ev) => {
  ev.preventDefault();
  const params = new URLSearchParams([...new FormData(ev.target)].filter(([, v]) => v !== ''));
  location.hash = 'journal' + (params.toString() ? '?' + params : '');
});
$('#journal-filters').addEventListener('reset', () => setTimeout(() => { location.hash = 'journal'; }));
$('#journal-older').addEventListener('click', () => { state.journal.offset += 50; showJournal(); });
$('#journal-newer').addEventListener('click', () => { state.journal.offset = Math.max(0, state.journal.offset - 50); showJournal(); });
$('#runs-older').addEventListener('click', () => { state.runs.offset += 50; showRuns(); });
$('#runs-newer').addEventListener('click', () => { state.runs.offset = Math.max(0, state.runs.offset - 50); showRuns(); });
$('#pictures-form').addEventListener('submit', (ev) => { ev.preventDefault(); showPictures(); });
$('#token-form').addEventListener('submit', (ev) => {
  ev.preventDefault();
  state.token = $('#token').value.trim();
  sessionStorage.setItem('qk-token', state.token);
  $('#token-box').hidden = true;
  route();
});

// The journal and the runs follow new deliveries while their first page is shown.
setInterval(() => {
  if (state.view === 'journal' && state.journal.offset === 0) showJournal();
  if (state.view === 'runs' && state.runs.offset === 0) showRuns();
}, 5000);

route();
refresh();
