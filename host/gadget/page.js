// The gadget page's behaviour. The page itself is generated from the theme's forms; this script
// knows only the kinds of elements and the data attributes that say what they bind:
//   data-p     a parameter ("<controller>:<name>"): edit boxes, check boxes, buttons, select
//              boxes, texts, variants on a parameter
//   data-prop  a property: variants and busy indicators
//   data-list  a list the component publishes: painted from the drawing the host recorded
// Changes arrive as server-sent events; what the user does is posted, one request after the
// other, in the order it happened.
'use strict';

(() => {
  let state = { values: {}, props: {}, lists: {} };
  let queue = Promise.resolve();

  /// Posts `fields` to `path` now; resolves to the response, or null when there was none.
  async function send(path, fields) {
    try {
      const response = await fetch(path, { method: 'POST', body: new URLSearchParams(fields) });
      if (!response.ok) {
        const reason = (await response.text()).trim();
        if (response.status === 409 && path === 'list/drop') showAlert(reason);
        else console.warn(`${path}: ${reason}`);
      }
      return response;
    } catch (error) {
      console.warn(`${path}: ${error}`);
      return null;
    }
  }

  /// Runs `work` after everything queued before it has been answered.
  function enqueue(work) {
    const done = queue.then(work);
    queue = done.then(() => undefined, () => undefined);
    return done;
  }

  /// Posts `fields` to `path` after everything posted before.
  function post(path, fields) { return enqueue(() => send(path, fields)); }

  // Alerts of the plug-in, one at a time, in the order they came.
  const alertBox = document.getElementById('alert');
  const alerts = [];
  function showAlert(text) {
    alerts.push(text);
    if (alertBox.hidden) nextAlert();
  }
  function nextAlert() {
    if (!alerts.length) { alertBox.hidden = true; return; }
    alertBox.querySelector('p').textContent = alerts.shift();
    alertBox.hidden = false;
    alertBox.querySelector('button').focus();
  }
  alertBox.querySelector('button').addEventListener('click', nextAlert);

  // --- Controls bound to parameters -------------------------------------------------------

  const isTextField = (element) => element.matches('input[type=text], input[type=password], textarea');

  for (const element of document.querySelectorAll('[data-p]')) {
    const key = element.dataset.p;
    if (isTextField(element)) {
      element.addEventListener('change', () => post('value', { key, value: element.value, notify: 1 }));
    } else if (element.matches('input[type=checkbox]')) {
      element.addEventListener('change', () => post('value', { key, value: element.checked ? 1 : 0, notify: 1 }));
    } else if (element.tagName === 'SELECT') {
      element.addEventListener('change', () => post('menu', { key, index: element.selectedIndex }));
    } else if (element.tagName === 'BUTTON') {
      element.addEventListener('click', () => post('press', { key }));
    }
  }

  function applyValue(element, value) {
    if ('on' in value && 'disabled' in element) element.disabled = !value.on;
    if (isTextField(element)) {
      // A password never comes back; a field being typed in keeps what is typed.
      if ('v' in value && document.activeElement !== element) element.value = String(value.v);
    } else if (element.matches('input[type=checkbox]')) {
      element.checked = Number(value.v) !== 0;
    } else if (element.tagName === 'SELECT') {
      const entries = (value.e || []).map((title) => ({ title: String(title), on: true }))
        .concat((value.m || []).map((item) => ({ title: String(item.title), on: !!item.on, command: true })));
      const signature = JSON.stringify(entries);
      if (element.dataset.entries !== signature) {
        element.dataset.entries = signature;
        element.replaceChildren(...entries.map((entry) => {
          const option = new Option(entry.title);
          option.disabled = !entry.on;
          if (entry.command) option.className = 'command';
          return option;
        }));
      }
      const index = Number(value.v);
      if (index >= 0 && index < (value.e || []).length) element.selectedIndex = index;
    } else if (element.classList.contains('urllink')) {
      const address = String(value.v || '');
      if (/^https?:\/\//.test(address)) element.href = address; else element.removeAttribute('href');
    } else if (element.classList.contains('text')) {
      element.textContent = 'v' in value ? String(value.v) : '';
    }
  }

  /// The child a variant shows: the one whose case is the value, else the one at its index.
  function applyVariant(variant) {
    const value = variant.dataset.p ? (state.values[variant.dataset.p] || {}).v : state.props[variant.dataset.prop];
    const cases = [...variant.children].filter((child) => child.classList.contains('case'));
    let shown = null;
    if (cases.some((child) => 'case' in child.dataset)) {
      shown = cases.find((child) => child.dataset.case === String(value)) ||
              cases.find((child) => child.dataset.case === variant.dataset.default) || null;
    } else if (cases.length) {
      const index = Math.min(Math.max(Math.trunc(Number(value) || 0), 0), cases.length - 1);
      shown = cases[index];
    }
    for (const child of cases) child.hidden = child !== shown;
  }

  // --- Lists ------------------------------------------------------------------------------

  const dragType = 'application/x-sorvel-rows';

  function listOf(element) { return state.lists[element.dataset.list]; }

  /// The row and column under a point of the canvas; row -1 below the last row, null on the header.
  function cellAt(table, x, y) {
    if (!table || y < table.header) return null;
    const row = Math.floor((y - table.header) / table.rowHeight);
    let column = -1;
    for (let left = 0, index = 0; index < table.columns.length; left += table.columns[index], index += 1) {
      if (x >= left && x < left + table.columns[index]) column = index;
    }
    return { row: row < table.rows ? row : -1, column };
  }

  /// The sizable column whose right border is under a point of the header, or -1.
  function borderAt(table, x, y) {
    if (!table || y >= table.header) return -1;
    let right = 0;
    for (let column = 0; column < table.columns.length; column += 1) {
      right += table.columns[column];
      if (Math.abs(x - right) <= 4 && table.sizable[column]) return column;
    }
    return -1;
  }

  function fontOf(operation) {
    const [, , , , , , face, size, style] = operation;
    return `${style & 2 ? 'italic ' : ''}${style & 1 ? 'bold ' : ''}${size}px "${face}", "Liberation Sans", sans-serif`;
  }

  function paintList(element, table) {
    const canvas = element.querySelector('canvas');
    const width = Math.max(table.columns.reduce((sum, column) => sum + column, 0), element.clientWidth - 2);
    const height = Math.max(table.header + table.rows * table.rowHeight, 1);
    const ratio = window.devicePixelRatio || 1;
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
    canvas.style.width = `${width}px`;
    canvas.style.height = `${height}px`;
    const context = canvas.getContext('2d');
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    context.clearRect(0, 0, width, height);
    const texts = new Map(); // row -> column -> text, for the table that reads aloud
    for (const operation of table.drawing) {
      const [kind, x, y, w, h] = operation;
      if (kind === 'r') {
        context.fillStyle = operation[5];
        context.fillRect(x, y, w, h);
      } else if (kind === 't') {
        const [, , , , , text, , , , color, alignment] = operation;
        context.save();
        context.beginPath();
        context.rect(x, y, w, h);
        context.clip();
        context.font = fontOf(operation);
        context.fillStyle = color;
        context.textBaseline = 'middle';
        context.textAlign = ['left', 'center', 'right'][alignment] || 'left';
        context.fillText(text, alignment === 1 ? x + w / 2 : alignment === 2 ? x + w : x, y + h / 2);
        context.restore();
        const cell = cellAt(table, x + 1, y + 1);
        const row = cell ? cell.row : -1;
        const column = cell ? cell.column : cellAt({ ...table, header: 0 }, x + 1, 0).column;
        if (!texts.has(row)) texts.set(row, new Map());
        texts.get(row).set(column, text);
      }
    }
    // The selection tints the rows it covers, under their texts' colour.
    context.globalCompositeOperation = 'multiply';
    context.fillStyle = table.selectColor;
    for (const row of table.selection) context.fillRect(0, table.header + row * table.rowHeight, width, table.rowHeight - 1);
    context.globalCompositeOperation = 'source-over';

    const rows = element.querySelector('table.rows');
    const lines = [];
    for (let row = -1; row < table.rows; row += 1) {
      const line = document.createElement('tr');
      line.dataset.row = row;
      if (table.selection.includes(row)) line.setAttribute('aria-selected', 'true');
      for (let column = 0; column < table.columns.length; column += 1) {
        const cell = document.createElement(row < 0 ? 'th' : 'td');
        cell.textContent = (texts.get(row) && texts.get(row).get(column)) || '';
        line.append(cell);
      }
      lines.push(line);
    }
    rows.replaceChildren(...lines);
  }

  // --- Pre-flight report: a badge per row, the selected row's figures beside the inspector ---

  const figureRows = [
    ['integrated_loudness_lufs', 'Loudness', 'LUFS'], ['loudness_range_lu', 'Loudness range', 'LU'],
    ['true_peak_dbtp', 'True peak', 'dBTP'], ['sample_peak_dbfs', 'Sample peak', 'dBFS'],
    ['clipped_samples', 'Clipped samples', ''], ['leading_silence_s', 'Silence at the start', 's'],
    ['trailing_silence_s', 'Silence at the end', 's'],
  ];

  function figureText(value, unit) {
    if (value === null || value === undefined) return `-inf ${unit}`.trim();
    // Rounded first, so that a level just under zero reads 0.0, not -0.0.
    const text = Number.isInteger(value) && !unit ? String(value) : (Math.round(value * 10) / 10 || 0).toFixed(1);
    return `${text} ${unit}`.trim();
  }

  function preflightPanel(element) {
    let panel = document.getElementById('preflight');
    if (!panel) {
      panel = document.createElement('section');
      panel.id = 'preflight';
      panel.className = 'preflight panel';
      panel.setAttribute('aria-label', 'Pre-flight report');
      // Beside the inspector: under the window beside the one that holds it (the dashboard), in
      // a column of their own; after that window when it stands alone.
      const inspector = document.querySelector('[data-p="TrackInfo:hasFocusItem"], [data-prop="TrackInfo:hasFocusItem"]');
      const client = (inspector || element).closest('.panel') || element;
      const neighbour = [...document.querySelectorAll('.gadget > .panel')].find((window) => window !== client);
      if (neighbour) {
        const column = document.createElement('div');
        column.className = 'column';
        neighbour.before(column);
        column.append(neighbour, panel);
        panel.style.width = `${neighbour.offsetWidth}px`;
      } else {
        client.after(panel);
      }
    }
    return panel;
  }

  function paintChecks(element, table) {
    let badges = element.querySelector('.badges');
    if (!badges) {
      badges = document.createElement('div');
      badges.className = 'badges';
      element.append(badges);
    }
    const checks = table.checks || [];
    // In a gutter left of the rows, which the table makes room for while a row has a report.
    element.classList.toggle('checked', checks.length > 0);
    badges.replaceChildren(...checks.map(([row, report]) => {
      const badge = document.createElement('span');
      badge.className = `badge ${report.check}`;
      badge.dataset.row = row;
      badge.textContent = report.check;
      badge.title = report.findings.map((finding) => `${finding.severity}: ${finding.text}`).join('\n');
      badge.style.top = `${table.header + row * table.rowHeight + Math.max((table.rowHeight - 16) / 2, 0)}px`;
      return badge;
    }));

    const panel = preflightPanel(element);
    const selected = checks.find(([row]) => row === table.selection[0]);
    panel.hidden = !selected;
    if (!selected) return;
    const [row, report] = selected;
    const heading = document.createElement('h2');
    heading.textContent = 'Pre-flight report';
    const verdict = document.createElement('span');
    verdict.className = `badge ${report.check}`;
    verdict.textContent = report.check;
    heading.append(' ', verdict);
    const figures = document.createElement('dl');
    for (const [key, label, unit] of figureRows) {
      if (!(key in report)) continue;
      const term = document.createElement('dt');
      term.textContent = label;
      const value = document.createElement('dd');
      value.dataset.figure = key;
      value.textContent = figureText(report[key], unit);
      figures.append(term, value);
    }
    const findings = document.createElement('ul');
    for (const finding of report.findings) {
      const item = document.createElement('li');
      item.className = finding.severity;
      item.textContent = `${finding.severity}: ${finding.text}`;
      findings.append(item);
    }
    panel.dataset.row = row;
    panel.replaceChildren(heading, figures, findings);
  }

  function point(canvas, event) {
    const box = canvas.getBoundingClientRect();
    return [event.clientX - box.left, event.clientY - box.top];
  }

  for (const element of document.querySelectorAll('[data-list]')) {
    const key = element.dataset.list;
    const canvas = element.querySelector('canvas');
    canvas.draggable = true;

    canvas.addEventListener('click', (event) => {
      const cell = cellAt(listOf(element), ...point(canvas, event));
      if (cell && cell.row >= 0 && cell.column >= 0) {
        post('list/click', { key, row: cell.row, column: cell.column, shift: event.shiftKey ? 1 : 0,
          ctrl: event.ctrlKey || event.metaKey ? 1 : 0 });
      }
    });
    // The keyboard: up and down move the selection (with shift, extend it), Delete removes the
    // selected rows.
    canvas.addEventListener('keydown', (event) => {
      const table = listOf(element);
      if (!table) return;
      if (event.key === 'Delete' || event.key === 'Backspace') {
        event.preventDefault();
        post('list/remove', { key });
      } else if ((event.key === 'ArrowDown' || event.key === 'ArrowUp') && table.rows > 0) {
        event.preventDefault();
        const last = table.selection.length ? table.selection[table.selection.length - 1] : -1;
        const row = Math.min(Math.max(last + (event.key === 'ArrowDown' ? 1 : -1), 0), table.rows - 1);
        post('list/click', { key, row, column: 1, shift: event.shiftKey ? 1 : 0, ctrl: 0 });
      }
    });
    // A sizable column's header border is dragged to a new width.
    const guide = document.createElement('div');
    guide.className = 'column-guide';
    guide.hidden = true;
    element.append(guide);
    canvas.addEventListener('mousedown', (event) => {
      const table = listOf(element);
      const [x, y] = point(canvas, event);
      const column = borderAt(table, x, y);
      if (column < 0 || event.button !== 0) return;
      event.preventDefault();
      const start = event.clientX;
      const width = table.columns[column];
      const left = table.columns.slice(0, column).reduce((sum, each) => sum + each, 0);
      const place = (clientX) => {
        guide.style.left = `${canvas.offsetLeft + left + Math.max(width + clientX - start, 16)}px`;
      };
      place(start);
      guide.hidden = false;
      const move = (moved) => place(moved.clientX);
      const up = (released) => {
        window.removeEventListener('mousemove', move);
        window.removeEventListener('mouseup', up);
        guide.hidden = true;
        post('list/column', { key, column, width: Math.round(width + released.clientX - start) });
      };
      window.addEventListener('mousemove', move);
      window.addEventListener('mouseup', up);
    });
    canvas.addEventListener('mousemove', (event) => {
      const table = listOf(element);
      canvas.style.cursor = borderAt(table, ...point(canvas, event)) >= 0 ? 'col-resize' : '';
      const cell = cellAt(table, ...point(canvas, event));
      const tip = cell && table.tooltips.find(([row, column]) => row === cell.row && column === cell.column);
      canvas.title = tip ? tip[2] : '';
    });

    // Rows dragged within the list move there; files dragged in from the desktop are sent to
    // the host, which keeps them in its cache folder and drops them on the list.
    canvas.addEventListener('dragstart', (event) => {
      const table = listOf(element);
      const cell = cellAt(table, ...point(canvas, event));
      if (!cell || cell.row < 0) { event.preventDefault(); return; }
      const rows = table.selection.includes(cell.row) ? table.selection : [cell.row];
      event.dataTransfer.setData(dragType, rows.join(','));
      event.dataTransfer.effectAllowed = 'move';
    });
    const accepts = (event) => event.dataTransfer &&
      (event.dataTransfer.types.includes(dragType) || event.dataTransfer.types.includes('Files'));
    element.addEventListener('dragover', (event) => {
      if (!accepts(event)) return;
      event.preventDefault();
      event.dataTransfer.dropEffect = event.dataTransfer.types.includes(dragType) ? 'move' : 'link';
      element.classList.add('drop-target');
    });
    element.addEventListener('dragleave', () => element.classList.remove('drop-target'));
    element.addEventListener('drop', (event) => {
      element.classList.remove('drop-target');
      if (!accepts(event)) return;
      event.preventDefault();
      // A drop below the last row lands after it, as the list's next row.
      const table = listOf(element);
      const cell = cellAt(table, ...point(canvas, event));
      const row = !cell ? 0 : cell.row < 0 ? table.rows : cell.row;
      const rows = event.dataTransfer.getData(dragType);
      if (rows) {
        post('list/move', { key, rows, row });
        return;
      }
      const files = [...event.dataTransfer.files];
      enqueue(async () => {
        const ids = [];
        for (const file of files) {
          try {
            const response = await fetch(`file?name=${encodeURIComponent(file.name)}`, { method: 'POST', body: file });
            if (response.ok) ids.push((await response.json()).id);
            else showAlert(`${file.name}: ${(await response.text()).trim()}`);
          } catch (error) {
            showAlert(`${file.name}: ${error}`);
          }
        }
        if (ids.length) await send('list/drop', { key, files: ids.join(','), row });
      });
    });
  }

  // --- State and events -------------------------------------------------------------------

  const watchers = [];

  function apply(next) {
    state = next;
    for (const element of document.querySelectorAll('[data-p]')) {
      const value = state.values[element.dataset.p];
      if (value && !element.classList.contains('variant')) applyValue(element, value);
    }
    for (const variant of document.querySelectorAll('.variant')) applyVariant(variant);
    for (const busy of document.querySelectorAll('[data-busy]')) busy.hidden = !Number(state.props[busy.dataset.prop]);
    for (const element of document.querySelectorAll('[data-list]')) {
      const table = listOf(element);
      if (table) {
        paintList(element, table);
        paintChecks(element, table);
      }
    }
    document.body.dataset.ready = 'true';
    for (const watcher of watchers) watcher(state);
  }

  const offline = document.getElementById('offline');
  const events = new EventSource('events');
  for (const name of ['state', 'changed', 'propertyChanged', 'progress']) {
    events.addEventListener(name, (event) => apply(JSON.parse(event.data)));
  }
  events.addEventListener('alert', (event) => showAlert(JSON.parse(event.data).text));
  events.addEventListener('openUrl', (event) => {
    const address = JSON.parse(event.data).url;
    if (/^https?:\/\//.test(address)) window.open(address, '_blank', 'noopener,noreferrer');
  });
  // The gadget asks to be brought to the front: its window takes the focus, on the first field
  // that can take input.
  events.addEventListener('activate', () => {
    window.focus();
    const main = document.querySelector(`[data-form="${document.body.dataset.main}"]`) || document.body;
    main.scrollIntoView({ block: 'start' });
    const field = [...main.querySelectorAll('input, textarea, select, button')]
      .find((element) => element.offsetParent && !element.disabled);
    if (field) field.focus();
  });
  events.onopen = () => { offline.hidden = true; };
  events.onerror = () => { offline.hidden = events.readyState === EventSource.OPEN; };

  // For scripts that drive the page (the browser tests): the last state, a promise that settles
  // when everything posted so far has been answered, and a way to see every state that arrives.
  window.sorvelGadget = {
    get state() { return state; },
    idle: () => queue,
    watch: (watcher) => { watchers.push(watcher); },
  };
})();
