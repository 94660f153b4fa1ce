// Shows the data that the page holds. Texts of reports become text nodes and drawn text, nothing else.
(function () {
  "use strict";

  const data = JSON.parse(document.getElementById("data").textContent);

  const MOST_BARS = 20;
  const MOST_GROUPS = 30;
  const INK = "#1b1f24";
  const DARK = "#1f4e79";
  const LIGHT = "#8fb4d8";

  // An element with its properties and what it contains: elements, and texts as text.
  function make(name, properties, ...content) {
    const element = document.createElement(name);
    for (const [key, value] of Object.entries(properties || {})) {
      if (key === "class") {
        element.className = value;
      } else {
        element.setAttribute(key, value);
      }
    }
    element.append(...content);
    return element;
  }

  function section(id) {
    return document.getElementById(id);
  }

  function counted(count, what) {
    return count.toLocaleString("en") + " " + what + (count === 1 ? "" : "s");
  }

  // Rounded down, so that nothing but all is 100 %.
  function percent(share) {
    return share === null ? "–" : (Math.floor(share * 10000 + 1e-9) / 100).toFixed(2) + " %";
  }

  function digits(number, significant) {
    return number === null || number === undefined ? "–" : String(Number(number.toPrecision(significant)));
  }

  function cut(text, length) {
    const characters = Array.from(text);
    return characters.length <= length ? text : characters.slice(0, length - 1).join("") + "…";
  }

  function hexadecimal(code) {
    return code.toString(16).padStart(2, "0");
  }

  function itemName(name, row) {
    return "code1" in row ? name + ", 0x" + hexadecimal(row.code1) + " " + hexadecimal(row.code2) : name;
  }

  // A table in a box that scrolls by itself where the screen is narrow. A column has a head, a cell of
  // a row (a text, a number's text or an element), and "number" where it is right-aligned.
  function table(caption, columns, rows) {
    const head = make("tr", {}, ...columns.map((column) =>
      make("th", { scope: "col", class: column.kind || "" }, column.head)));
    const body = rows.map((row) => make("tr", {}, ...columns.map((column) =>
      make("td", { class: column.kind || "" }, column.cell(row)))));
    return make("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": caption },
      make("table", {}, make("caption", {}, caption), make("thead", {}, head), make("tbody", {}, ...body)));
  }

  function details(title, ...content) {
    return make("details", {}, make("summary", {}, title), ...content);
  }

  // Hatched instead of coloured, so that a bar is known without colour.
  function hatched(colour, crosswise) {
    const tile = make("canvas", { width: "8", height: "8" });
    const context = tile.getContext("2d");
    context.strokeStyle = colour;
    context.lineWidth = crosswise ? 2 : 1.5;
    context.beginPath();
    for (const shift of [-8, 0, 8]) {
      context.moveTo(shift, 8);
      context.lineTo(shift + 8, 0);
      if (crosswise) {
        context.moveTo(shift, 0);
        context.lineTo(shift + 8, 8);
      }
    }
    context.stroke();
    return context.createPattern(tile, "repeat");
  }

  Chart.defaults.animation = false;
  Chart.defaults.maintainAspectRatio = false;
  Chart.defaults.color = INK;
  Chart.defaults.font.family = getComputedStyle(document.body).fontFamily;
  Chart.defaults.font.size = 13;
  Chart.defaults.devicePixelRatio = Math.max(2, window.devicePixelRatio);
  Chart.defaults.datasets.line.clip = false;  // points at 100 % are whole
  Chart.defaults.plugins.legend.labels.usePointStyle = true;

  // Charts are drawn when they come into view: a line may have hundreds.
  const waiting = new Map();
  const drawn = [];

  function draw(canvas) {
    const configuration = waiting.get(canvas);
    if (configuration) {
      waiting.delete(canvas);
      drawn.push(new Chart(canvas, configuration()));
    }
  }

  const viewer = new IntersectionObserver((entries) => {
    for (const entry of entries) {
      if (entry.isIntersecting) {
        viewer.unobserve(entry.target);
        draw(entry.target);
      }
    }
  }, { rootMargin: "600px" });

  window.addEventListener("beforeprint", () => {
    for (const canvas of Array.from(waiting.keys())) {
      draw(canvas);
    }
  });

  // A chart with its figures as a table.
  function chart(caption, description, configuration, figures) {
    const canvas = make("canvas", { role: "img", "aria-label": description });
    waiting.set(canvas, configuration);
    viewer.observe(canvas);
    return make("figure", {}, caption, make("div", { class: "chart" }, canvas), details("The figures", figures));
  }

  const yieldColumns = [
    { head: "Runs", kind: "number", cell: (row) => String(row.runs.all) },
    { head: "Passed", kind: "number", cell: (row) => String(row.runs.passed) },
    { head: "Yield of runs", kind: "number", cell: (row) => percent(row.runs.yield) },
    { head: "Units in their first run", kind: "number", cell: (row) => percent(row.first_runs.yield) },
    { head: "Units in their last run", kind: "number", cell: (row) => percent(row.last_runs.yield) },
  ];

  function inPercent(share) {
    return share === null ? null : share * 100;
  }

  function percentTicks(value) {
    return Number(value.toFixed(2)) + " %";
  }

  function showYield() {
    const days = data.days.map((row) => row.day).filter((day) => day !== "");
    const span = days.length === 0 ? "" :
      ", " + (days.length === 1 ? days[0] : days[0] + " to " + days[days.length - 1]);
    section("heading").append(counted(data.runs.all, "run") + " of " + counted(data.units, "unit") + span);

    const figures = section("yield").querySelector(".figures");
    const figure = (what, part) => figures.append(make("div", {}, make("dt", {}, what),
      make("dd", {}, percent(part.yield)), make("dd", {}, part.passed.toLocaleString("en") + " of " +
        part.all.toLocaleString("en") + " passed")));
    figure("units in their first run", data.first_runs);
    figure("units in their last run", data.last_runs);
    figure("runs", data.runs);
    const others = [["fail", "failed"], ["timeout", "timed out"], ["stop", "stopped"], ["none", "without a result"]]
      .filter(([result]) => data.results[result] > 0)
      .map(([result, word]) => data.results[result].toLocaleString("en") + " " + word);
    figures.append(make("div", {}, make("dt", {}, "runs that did not pass"),
      make("dd", {}, (data.runs.all - data.runs.passed).toLocaleString("en")), make("dd", {}, others.join(", "))));

    const notes = section("yield").querySelector(".notes");
    const note = (count, what, text) => count > 0 && notes.append(make("li", {}, counted(count, what) + text));
    note(data.without_serial_number, "run", " without a serial number, so of no unit");
    note(data.without_start_time, "run", " without a start time, so taken as a unit's first");
    note(data.repeated, "run", " with the serial number and start time of another");
    if (data.refused.length > 0) {
      notes.append(make("li", {}, counted(data.refused.length, "name") + " not read, and not counted here",
        details("Which, and why", make("ul", {}, ...data.refused.map((line) => make("li", {}, line))))));
    }
  }

  function showDays() {
    const days = data.days.filter((row) => row.day !== "");
    const columns = [{ head: "Day", cell: (row) => row.day || "(no start time)" }, ...yieldColumns];
    section("days").append(chart("", "Yield over " + counted(days.length, "day") + ": the figures follow as a table",
      () => ({
        type: "line",
        data: {
          labels: days.map((row) => row.day),
          datasets: [
            { label: "units in their first run", data: days.map((row) => inPercent(row.first_runs.yield)),
              borderColor: DARK, backgroundColor: DARK, pointStyle: "circle", pointRadius: 5 },
            { label: "runs", data: days.map((row) => inPercent(row.runs.yield)), borderColor: INK,
              backgroundColor: "#fff", borderDash: [6, 4], pointStyle: "triangle", pointRadius: 6 },
          ],
        },
        options: { scales: { y: { suggestedMax: 100, ticks: { callback: percentTicks } } } },
      }), table("Yield of each day", columns, data.days)));
  }

  function showPareto() {
    const failing = data.items.filter((item) => item.failures > 0);
    if (failing.length === 0) {
      section("pareto").append(make("p", {}, "No item failed."));
      return;
    }
    const shown = failing.slice(0, MOST_BARS);
    const names = shown.map((item) => itemName(item.name, item));
    const caption = failing.length > shown.length ?
      make("figcaption", {}, make("p", {}, "The first " + shown.length + " of " + failing.length +
        " items that failed; the table of all items has the others.")) : "";
    section("pareto").append(chart(caption, "Pareto chart of " + counted(shown.length, "item") +
      ": failures as bars, their shares together as a line; the most failures: " + names[0], () => ({
      type: "bar",
      data: {
        labels: names,
        datasets: [
          { type: "line", label: "together with those before", yAxisID: "share", pointStyle: "rect", pointRadius: 5,
            data: shown.map((item) => inPercent(item.cumulative_share)), borderColor: INK, backgroundColor: "#fff",
            borderDash: [6, 4] },
          { label: "failures", data: shown.map((item) => item.failures), backgroundColor: LIGHT, borderColor: DARK,
            borderWidth: 1, pointStyle: "rectRot" },
        ],
      },
      options: {
        scales: {
          x: { ticks: { autoSkip: false, callback: (value, index) => cut(names[index], 28) } },
          y: { beginAtZero: true, ticks: { precision: 0 }, title: { display: true, text: "failures" } },
          share: { position: "right", min: 0, max: 100, grid: { drawOnChartArea: false },
            ticks: { callback: percentTicks } },
        },
      },
    }), table("Items that failed", [
      { head: "Item", kind: "text", cell: (item) => itemName(item.name, item) },
      { head: "Failures", kind: "number", cell: (item) => String(item.failures) },
      { head: "Share", kind: "number", cell: (item) => percent(item.share) },
      { head: "Together", kind: "number", cell: (item) => percent(item.cumulative_share) },
    ], shown)));
  }

  // The table of all items, which its head sorts. Numbers begin with the largest, names with the first.
  function showItems() {
    const columns = [
      { head: "Item", kind: "text", value: (item) => itemName(item.name, item), show: (value) => value },
      { head: "Runs", value: (item) => item.runs, show: String },
      { head: "Failures", value: (item) => item.failures, show: String },
      { head: "Share of failures", value: (item) => item.share, show: percent },
      { head: "Failed of runs", value: (item) => item.runs > 0 ? item.failures / item.runs : null, show: percent },
      { head: "Passed only on a retry", value: (item) => item.passed_on_retry, show: String },
      { head: "Without a result", value: (item) => item.without_result, show: String },
      { head: "Median duration", value: (item) => item.median_duration, show: (value) => digits(value, 10) },
      { head: "95 % within", value: (item) => item.duration_95, show: (value) => digits(value, 10) },
    ];
    const box = table(counted(data.items.length, "item"), columns.map((column) => ({
      head: make("button", { type: "button" }, column.head),
      kind: column.kind || "number",
      cell: (item) => column.show(column.value(item)),
    })), data.items);
    const body = box.querySelector("tbody");
    const heads = Array.from(box.querySelectorAll("th"));
    const rows = Array.from(body.rows).map((row, index) => ({ row: row, item: data.items[index], index: index }));

    function sort(column, descending) {
      const value = columns[column].value;
      rows.sort((a, b) => {
        const [left, right] = [value(a.item), value(b.item)];
        if (left === right) {
          return a.index - b.index;
        }
        if (left === null || right === null) {
          return left === null ? 1 : -1;  // what is missing stays at the end
        }
        const order = typeof left === "string" ? left.localeCompare(right, "en", { numeric: true }) : left - right;
        return descending ? -order : order;
      });
      body.append(...rows.map((entry) => entry.row));
      heads.forEach((head, index) => head.setAttribute("aria-sort",
        index === column ? (descending ? "descending" : "ascending") : "none"));
    }

    heads.forEach((head, column) => head.firstChild.addEventListener("click", () => {
      const now = head.getAttribute("aria-sort");
      sort(column, now === "none" ? columns[column].kind !== "text" : now === "ascending");
    }));
    sort(2, true);
    section("items").append(box);
  }

  function limitText(value) {
    const [low, high] = [digits(value.low, 10), digits(value.high, 10)];
    return value.limit === "range" ? low + " to " + high : value.limit + " " + (value.low === null ? high : low);
  }

  function valueName(value) {
    const name = itemName(value.item, value);
    return value.label !== "" ? name + ": " + value.label :
      value.position > 1 ? name + ": value " + value.position : name;
  }

  // Draws the limits into a histogram, whose bars have equal width on a scale of categories.
  const limitLines = {
    id: "limits",
    afterDatasetsDraw: (chart, args, options) => {
      const area = chart.chartArea;
      const context = chart.ctx;
      context.save();
      context.strokeStyle = INK;
      context.fillStyle = INK;
      context.lineWidth = 2;
      context.font = "bold 12px sans-serif";
      context.setLineDash([6, 4]);
      for (const line of options.lines) {
        const x = area.left + 1 + line.place * (area.right - area.left - 2);  // whole at the edges too
        context.beginPath();
        context.moveTo(x, area.top - 14);
        context.lineTo(x, area.bottom);
        context.stroke();
        context.textAlign = line.place > 0.5 ? "right" : "left";
        context.fillText(line.text, x + (line.place > 0.5 ? -4 : 4), area.top - 5);
      }
      context.restore();
    },
  };

  function histogram(value) {
    const bars = value.histogram;
    const edges = bars.counts.map((count, index) => bars.from + index * bars.width);
    const end = bars.from + bars.counts.length * bars.width;
    const outside = (edge) => (bars.allowed_below !== null && edge >= bars.allowed_below - bars.width / 1e6) ||
      (bars.allowed_from !== null && edge + bars.width <= bars.allowed_from + bars.width / 1e6);
    const lines = [[bars.allowed_from, value.low], [bars.allowed_below, value.high]]
      .filter(([place]) => place !== null)
      .map(([place, limit]) => ({ place: (place - bars.from) / (end - bars.from), text: digits(limit, 10) }));
    const beyond = [[bars.below, " below " + digits(bars.from, 10)], [bars.above, " from " + digits(end, 10) + " on"]]
      .filter(([count]) => count > 0).map(([count, where]) => count + where);
    const far = [[value.low, bars.allowed_from], [value.high, bars.allowed_below]]
      .filter(([limit, place]) => limit !== null && place === null).map(([limit]) => digits(limit, 10));
    const index = (name, of) => of ? ", " + name + " " + of.value.toFixed(2) + " (" + of.low.toFixed(2) + " to " +
      of.high.toFixed(2) + ")" : "";
    const name = valueName(value);
    const facts = "Limit " + limitText(value) + "; n " + value.n + ", mean " + digits(value.mean, 5) +
      ", deviation " + (value.n > 1 ? digits(value.deviation, 4) : "–") + ", " + digits(value.min, 10) + " to " +
      digits(value.max, 10) + index("Cp", value.cp) + index("Cpk", value.cpk);
    const caption = make("figcaption", {}, make("h3", {}, name), make("p", {}, facts));
    if (value.not_numbers > 0) {
      caption.append(make("p", {}, counted(value.not_numbers, "text") + " that are no numbers"));
    }
    if (beyond.length > 0) {
      caption.append(make("p", {}, "Not drawn, because far away: " + beyond.join(", ")));
    }
    if (far.length > 0) {
      caption.append(make("p", {}, "Farther away than the bars reach: the limit " + far.join(" and ")));
    }
    return chart(caption, "Histogram of " + name + ". " + facts, () => ({
      type: "bar",
      plugins: [limitLines],
      data: {
        labels: edges.map((edge) => digits(edge, 10)),
        datasets: [{ data: bars.counts, barPercentage: 1, categoryPercentage: 1, borderColor: DARK, borderWidth: 1,
          backgroundColor: edges.map((edge) => outside(edge) ? hatched(INK, true) : LIGHT) }],
      },
      options: {
        layout: { padding: { top: 18 } },
        plugins: { legend: { display: false }, limits: { lines: lines } },
        scales: {
          x: { grid: { display: false }, ticks: { maxRotation: 0, autoSkipPadding: 12 } },
          y: { beginAtZero: true, ticks: { precision: 0 } },
        },
      },
    }), table("Values of " + name + "; a row has those from its number to less than the next", [
      { head: "From", kind: "number", cell: (row) => digits(row[0], 10) },
      { head: "Values", kind: "number", cell: (row) => String(row[1]) },
      { head: "Limits", cell: (row) => outside(row[0]) ? "outside" : "" },
    ], edges.map((edge, place) => [edge, bars.counts[place]])));
  }

  function showValues() {
    const values = data.values.filter((value) => value.histogram);
    if (values.length === 0) {
      section("values").replaceChildren(section("values").firstElementChild,
        make("p", {}, "No measured value has limits."));
      return;
    }
    section("values").querySelector(".charts").append(...values.map(histogram));
  }

  function showGroups() {
    if (data.by !== "mm") {
      section("groups-title").textContent = "Yield by " + data.by;
    }
    const name = (row) => row.value === "" ? "(none)" : row.value;
    const shown = data.groups.slice(0, MOST_GROUPS);
    const labels = shown.map((row) => cut(name(row), 24));
    const caption = data.groups.length > shown.length ? make("figcaption", {}, make("p", {}, "The " + shown.length +
      " with the lowest yield of " + data.groups.length + "; the figures have all.")) : "";
    const figure = chart(caption, "Yield by " + data.by + ", the lowest first: the figures follow as a table", () => ({
      type: "bar",
      data: {
        labels: labels.map((label, index) => [label, counted(shown[index].runs.all, "run")]),
        datasets: [
          { label: "units in their first run", data: shown.map((row) => inPercent(row.first_runs.yield)),
            backgroundColor: LIGHT, borderColor: DARK, borderWidth: 1, pointStyle: "rect" },
          { label: "runs", data: shown.map((row) => inPercent(row.runs.yield)), backgroundColor: hatched(INK, false),
            borderColor: INK, borderWidth: 1, pointStyle: "rect" },
        ],
      },
      options: { indexAxis: "y", scales: { x: { min: 0, max: 100, ticks: { callback: percentTicks } } } },
    }), table("Yield by " + data.by, [{ head: data.by, kind: "text", cell: name }, ...yieldColumns], data.groups));
    figure.querySelector(".chart").style.height = 7 + 4.5 * shown.length + "rem";
    section("groups").append(figure);
  }

  function showFailing() {
    const all = data.failing_runs_in_all;
    const runs = data.failing_runs;
    if (all === 0) {
      section("failing").append(make("p", {}, "All runs passed."));
      return;
    }
    const reasons = (run) => {
      const lines = run.reasons.map((reason) => make("li", {}, reason));
      if (run.more_reasons > 0) {
        lines.push(make("li", {}, "and " + counted(run.more_reasons, "more item")));
      }
      return lines.length > 0 ? make("ul", {}, ...lines) : "no item failed";
    };
    const caption = (all > runs.length ? "The latest " + runs.length + " of " + counted(all, "run") :
      counted(all, "run") + ", the latest first");
    section("failing").append(table(caption, [
      { head: "Start", cell: (run) => run.start },
      { head: "Serial number", cell: (run) => run.serial_number || "(none)" },
      { head: "Result", cell: (run) => run.result || "none" },
      { head: data.by, cell: (run) => run.group },
      { head: "What failed, and why", kind: "reasons", cell: reasons },
      { head: "Report", kind: "text", cell: (run) => run.file },
    ], runs));
  }

  showYield();
  showDays();
  showPareto();
  showItems();
  showValues();
  showGroups();
  showFailing();
})();
