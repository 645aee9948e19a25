// SPDX-License-Identifier: Apache-2.0
// Draws the curves of a device with uPlot: one chart for each group of values that it reports, all with the same time
// axis and the same cursor. A value that is not known is null, and leaves a gap. Pages use two functions:
//
//   const curves = VeltraCurves.create(element, {clock: false, bounds: ...});
//   curves.set({t: [seconds, ...], values: {tempLevel: [1, null, ...], ...}}, [{t: seconds, kind: "event", text: "..."}]);
//
// `t` increases. Keys are those of the service's device state, besides callsPerSecond and pushesPerSecond. With `clock`
// times are seconds since the epoch and shown as the local time of day, else they are shown as minutes and seconds.
// Kinds of marks are event, fault, lost and change. `set` replaces everything, and keeps what the reader has zoomed into.
// VeltraCurves.bounds([data, ...]) makes `bounds` for curves that are to be compared. Texts are never read as HTML.
"use strict";
const VeltraCurves = (() => {
    const HEIGHT = 190;
    const STEPS = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 43200, 86400, 172800, 432000];
    const GROUPS = [
        {title: "Temperature", unit: "°C", keys: {temperature: "temperature", thermalMargin: "margin to the limit"}},
        {title: "Levels", unit: "", range: [0, 5], steps: true,
         keys: {tempLevel: "temperature level", gpuLoadLevel: "GPU load level"}},
        {title: "Load", unit: "%", range: [0, 100],
         keys: {gpuLoadPercent: "GPU", cpuLoadPercent: "CPU", cpuPressurePercent: "CPU pressure",
                memoryPressurePercent: "memory pressure"}},
        {title: "Frequency", unit: "MHz", fromZero: true, keys: {currentFrequency: "GPU", gpuFrequencyCap: "limit of the GPU"}},
        {title: "Battery", unit: "%", range: [0, 100], keys: {batteryPercent: "charge"}},
        {title: "Power", unit: "mW", fromZero: true, keys: {powerDrawMilliwatts: "device", gpuPowerMilliwatts: "GPU"}},
        {title: "Fan", unit: "1/min", fromZero: true, keys: {fanRpm: "fan"}},
        {title: "Calls", unit: "1/s", fromZero: true, keys: {callsPerSecond: "calls", pushesPerSecond: "pushes"}},
    ];

    const two = number => String(Math.floor(number)).padStart(2, "0");

    // 75 is 01:15, 3675 is 1:01:15.
    function elapsed(seconds) {
        const whole = Math.max(0, Math.round(seconds));
        const minutes = two(whole / 60 % 60) + ":" + two(whole % 60);
        return whole < 3600 ? minutes : Math.floor(whole / 3600) + ":" + minutes;
    }

    function timeOfDay(seconds) {
        const time = new Date(seconds * 1000);
        return two(time.getHours()) + ":" + two(time.getMinutes()) + ":" + two(time.getSeconds());
    }

    const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
    const colourOf = (group, key) => "--curve-" + (1 + Object.keys(group.keys).indexOf(key));
    const isKnown = values => values !== undefined && values.some(value => value !== null);
    const knownKeys = (group, data) => Object.keys(group.keys).filter(key => isKnown(data.values[key]));

    function made(tag, parent, className, text) {
        const element = document.createElement(tag);
        element.className = className;
        element.textContent = text || "";
        parent.append(element);
        return element;
    }

    // The range of an axis that has no fixed one: all values with some room, and a height even for a flat curve.
    function rangeOf(group, low, high) {
        if (group.range) {
            return group.range;
        }
        const from = group.fromZero ? Math.min(0, low) : low;
        const room = Math.max((high - from) * 0.08, 1);
        return [group.fromZero ? from : from - room, high + room];
    }

    // The ranges that show all of several data: {x: [from, to], GROUP: [from, to]}.
    function bounds(all) {
        const result = {x: [0, Math.max(1, ...all.map(data => data.t.length ? data.t[data.t.length - 1] : 0))]};
        for (const group of GROUPS) {
            let low = Infinity;
            let high = -Infinity;
            for (const data of all) {
                for (const key of knownKeys(group, data)) {
                    for (const value of data.values[key]) {
                        low = value === null ? low : Math.min(low, value);
                        high = value === null ? high : Math.max(high, value);
                    }
                }
            }
            if (low <= high) {
                result[group.title] = rangeOf(group, low, high);
            }
        }
        return result;
    }

    // Lines behind the curves, one for each mark; the topmost pixels are filled, so that they are found without colour too.
    function drawMarks(plot, marks) {
        const {ctx, bbox} = plot;
        ctx.save();
        ctx.beginPath();
        ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
        ctx.clip();
        ctx.lineWidth = devicePixelRatio;
        ctx.setLineDash([4 * devicePixelRatio, 3 * devicePixelRatio]);
        for (const mark of marks) {
            if (mark.t < plot.scales.x.min || mark.t > plot.scales.x.max) {
                continue;
            }
            const x = plot.valToPos(mark.t, "x", true);
            ctx.strokeStyle = ctx.fillStyle = colour("--mark-" + mark.kind);
            ctx.beginPath();
            ctx.moveTo(x, bbox.top);
            ctx.lineTo(x, bbox.top + bbox.height);
            ctx.stroke();
            ctx.fillRect(x - 3 * devicePixelRatio, bbox.top, 6 * devicePixelRatio, 6 * devicePixelRatio);
        }
        ctx.restore();
    }

    // The marks within six pixels of the cursor, as one line of text.
    function marksAtCursor(plot, marks, shownTime) {
        const left = plot.cursor.left;
        if (left === undefined || left < 0) {
            return "";
        }
        const near = marks.filter(mark => Math.abs(plot.valToPos(mark.t, "x") - left) <= 6);
        const shown = near.slice(0, 3).map(mark => shownTime(mark.t) + " " + mark.text).join("; ");
        return near.length > 3 ? shown + "; and " + (near.length - 3) + " more" : shown;
    }

    // All charts that share the cursor of this one; what the mouse zooms, uPlot itself zooms in all of them.
    const together = chart => uPlot.sync(chart.state.cursor).plots;

    // In all charts that share it, once uPlot has applied a new scale.
    function moveCursor(plot, time) {
        queueMicrotask(() => plot.setCursor({left: plot.valToPos(time, "x"), top: 10}, true, true));
    }

    // Arrows move the cursor, with Shift by a tenth; Home and End; plus and minus zoom; Escape shows everything.
    function handleKey(chart, event) {
        const {plot} = chart;
        const times = plot.data[0];
        const last = times.length - 1;
        const now = plot.cursor.idx ?? 0;
        const step = event.shiftKey ? Math.max(1, Math.round(last / 10)) : 1;
        const targets = {ArrowLeft: now - step, ArrowRight: now + step, Home: 0, End: last};
        if (event.ctrlKey || event.altKey || event.metaKey || last < 0) {
            return;
        }
        if (event.key in targets) {
            const index = Math.min(last, Math.max(0, targets[event.key]));
            const {min, max} = plot.scales.x;
            if (times[index] < min || times[index] > max) {  // zoomed: the part that is shown moves along
                const from = Math.max(times[0], times[index] - (max - min) / 2);
                together(chart).forEach(each => each.setScale("x", {min: from, max: from + max - min}));
            }
            moveCursor(plot, times[index]);
            chart.spoken.textContent = spokenValues(plot, index);
        } else if (event.key === "+" || event.key === "-") {
            const {min, max} = plot.scales.x;
            const half = (max - min) * (event.key === "+" ? 0.25 : 1);
            const centre = plot.cursor.idx == null ? (min + max) / 2 : times[plot.cursor.idx];
            const [from, to] = chart.wholeTime();
            const shown = {min: Math.max(from, centre - half), max: Math.min(to, centre + half)};
            together(chart).forEach(each => each.setScale("x", shown));
            moveCursor(plot, centre);
        } else if (event.key === "Escape") {
            together(chart).forEach(each => each.setScale("x", {min: each.data[0][0], max: each.data[0].at(-1)}));
        } else {
            return;
        }
        event.preventDefault();
    }

    function spokenValues(plot, index) {
        const shown = plot.series.map((series, i) => series.label + " " + series.value(plot, plot.data[i][index], i, index));
        return shown.join(", ");
    }

    // Entries of the legend hide and show their curve; uPlot has them for the mouse only.
    function openLegendToKeyboard(plot) {
        plot.root.querySelectorAll(".u-legend .u-series th").forEach((entry, i) => {
            if (i === 0) {
                return;  // the time
            }
            entry.tabIndex = 0;
            entry.setAttribute("role", "button");
            entry.setAttribute("aria-pressed", "true");
            entry.addEventListener("click", () => entry.setAttribute("aria-pressed", String(plot.series[i].show)));
            entry.addEventListener("keydown", event => {
                if (event.key === "Enter" || event.key === " ") {
                    event.preventDefault();
                    event.stopPropagation();
                    entry.click();
                }
            });
        });
    }

    function seriesOf(group, keys, shownTime) {
        const unit = group.unit ? " " + group.unit : "";
        const decimals = group.unit === "1/s" ? 1 : 0;
        const shown = (plot, value) => value === null || value === undefined ? "–" : value.toFixed(decimals) + unit;
        return [{label: "time", value: (plot, value) => value === null || value === undefined ? "–" : shownTime(value)},
                ...keys.map(key => ({
                    label: group.keys[key],
                    stroke: () => colour(colourOf(group, key)),
                    dash: colourOf(group, key).endsWith("1") ? undefined : [8, 3],
                    width: 2,
                    points: {show: false},
                    value: shown,
                    paths: group.steps ? uPlot.paths.stepped({align: 1}) : uPlot.paths.linear(),
                }))];
    }

    // One chart. `state` has what all charts of a page share: data, marks, the cursor's name, whether it is zoomed.
    class Chart {
        constructor(parent, group, keys, state) {
            this.group = group;
            this.keys = keys;
            this.state = state;
            this.figure = made("figure", parent, "curve");
            made("figcaption", this.figure, "", group.unit ? group.title + " (" + group.unit + ")" : group.title);
            this.drawing = made("div", this.figure, "curve-drawing");
            this.drawing.tabIndex = 0;
            this.drawing.setAttribute("role", "group");
            this.drawing.setAttribute("aria-label", "Curve: " + group.title + ". Arrow keys move along it, plus and minus zoom.");
            this.caption = made("p", this.figure, "curve-mark");
            this.spoken = made("p", this.figure, "unseen");
            this.spoken.setAttribute("aria-live", "polite");
            this.plot = new uPlot(this.options(), this.data(), this.drawing);
            openLegendToKeyboard(this.plot);
            this.drawing.addEventListener("keydown", event => handleKey(this, event));
            this.sizes = new ResizeObserver(() => this.fit());
            this.sizes.observe(this.drawing);
        }

        options() {
            const {group, state} = this;
            const axis = {stroke: () => colour("--faint"), grid: {stroke: () => colour("--grid")},
                          ticks: {stroke: () => colour("--grid")}, font: "12px system-ui, sans-serif"};
            const styled = (plot, i) => i > 0 ? "var(" + colourOf(group, this.keys[i - 1]) + ")" : "transparent";
            const shownTimes = (plot, times) => times.map(time => time === null ? "" : state.shownTime(time));
            return {
                width: Math.max(this.drawing.clientWidth, 200),
                height: HEIGHT,
                cursor: {sync: {key: state.cursor}, y: false, drag: {x: true, y: false}, points: {fill: styled, stroke: styled}},
                legend: {markers: {stroke: styled, width: 2}},
                scales: {x: {time: false, range: (plot, low, high) => this.rangeOfTime(low, high)},
                         y: {range: (plot, low, high) => state.bounds?.[group.title] || rangeOf(group, low ?? 0, high ?? 1)}},
                axes: [{...axis, incrs: STEPS, space: 60, values: shownTimes}, {...axis, size: 56, space: 22}],
                series: seriesOf(group, this.keys, state.shownTime),
                hooks: {
                    drawAxes: [plot => drawMarks(plot, state.marks)],
                    setCursor: [plot => { this.caption.textContent = marksAtCursor(plot, state.marks, state.shownTime); }],
                },
            };
        }

        data() {
            const {t, values} = this.state.data;
            return [t, ...this.keys.map(key => values[key] || t.map(() => null))];
        }

        // The times that are shown unless the reader has zoomed.
        wholeTime() {
            const times = this.state.data.t;
            const first = times.length ? times[0] : 0;
            return this.state.bounds?.x || [first, Math.max(first + 1, times.length ? times[times.length - 1] : 1)];
        }

        // uPlot asks with the range of the data for everything, and with less when the reader zooms.
        rangeOfTime(low, high) {
            const times = this.state.data.t;
            const isWhole = !(high > low) || (low <= times[0] && high >= times[times.length - 1]);
            this.zoom = isWhole ? null : {min: low, max: high};
            return isWhole ? this.wholeTime() : [low, high];
        }

        fit() {
            const width = Math.max(this.drawing.clientWidth, 200);
            if (width !== this.plot.width) {
                this.plot.setSize({width, height: HEIGHT});
            }
        }

        update() {
            const zoom = this.zoom;
            this.plot.setData(this.data(), !zoom);
            if (zoom) {
                this.plot.setScale("x", zoom);
            }
        }

        destroy() {
            this.sizes.disconnect();
            this.plot.destroy();
            this.figure.remove();
        }
    }

    let created = 0;

    // options.sync: curves with the same name share their cursor.
    function create(element, options = {}) {
        const state = {data: {t: [], values: {}}, marks: [], charts: [], bounds: options.bounds,
                       shownTime: options.clock ? timeOfDay : elapsed, cursor: options.sync || "curves " + ++created};
        let known = GROUPS.map(() => []);  // keys that were known once keep their place
        const redraw = () => state.charts.forEach(chart => chart.plot.redraw(false));
        for (const query of ["(prefers-color-scheme: dark)", "print"]) {
            matchMedia(query).addEventListener("change", redraw);
        }
        return {
            set(data, marks = []) {
                state.data = data;
                state.marks = marks;
                const now = GROUPS.map((group, i) => Object.keys(group.keys).filter(
                    key => known[i].includes(key) || isKnown(data.values[key])));
                if (JSON.stringify(now) === JSON.stringify(known)) {
                    state.charts.forEach(chart => chart.update());
                    return;
                }
                known = now;
                state.charts.forEach(chart => chart.destroy());
                state.charts = [];
                GROUPS.forEach((group, i) => {
                    if (known[i].length > 0) {
                        state.charts.push(new Chart(element, group, known[i], state));
                    }
                });
            },
        };
    }

    return {create, bounds, elapsed, timeOfDay};
})();
