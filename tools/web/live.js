// SPDX-License-Identifier: Apache-2.0
// The live page. The server sends a stream of states, one each second. Each state adds a point to the curves and fills the
// tables. Commands of the simulator are requests with the token that was in the address. Names of games, and all other
// text that another process may have chosen, are set as text, never as HTML.
"use strict";
(() => {
    const MOST_POINTS = 600;
    const SEND_PAUSE = 150;  // ms between two positions of a slider that is being moved
    const REOPEN_PAUSE = 2000;  // ms, after the server has refused a stream
    const SECTIONS = ["thermalInfo", "gpuInfo", "memoryInfo", "powerInfo"];
    const FIRST_VALUES = ["tempLevel", "temperature", "thermalMargin", "throttling", "gpuLoadLevel", "gpuLoadPercent",
                          "cpuLoadPercent", "currentFrequency", "batteryPercent", "batteryCharging"];
    const MOST_OF_A_SLIDER = 10000;  // a wider range gets a field for a number

    const get = id => document.getElementById(id);
    const curves = VeltraCurves.create(get("curves"), {clock: true});
    const points = {t: [], values: {}};
    const marks = [];
    const inputs = new Map();  // key: {row, input, output, release}
    let token = "";
    let setup = null;
    let before = null;  // the state before this one
    let isMoving = "";  // key of the slider that is being moved

    function made(tag, parent, text = "") {
        const element = document.createElement(tag);
        element.textContent = text;
        parent.append(element);
        return element;
    }

    function setText(element, text) {
        if (element.textContent !== text) {  // else a screen reader would repeat it each second
            element.textContent = text;
        }
    }

    // The token leaves the address bar, so that a copied address or a picture of the page does not have it.
    function takeToken() {
        const given = new URLSearchParams(location.hash.slice(1)).get("token");
        if (given) {
            sessionStorage.setItem("token", given);
            history.replaceState(null, "", location.pathname);
        }
        token = sessionStorage.getItem("token") || "";
    }

    async function send(command) {
        let problem = "";
        try {
            const response = await fetch("/simulate", {
                method: "POST",
                headers: {"Content-Type": "application/json", "Authorization": "Bearer " + token},
                body: JSON.stringify(command),
            });
            const isRefused = response.status === 401;
            if (isRefused) {
                problem = "The token of this page is not valid any more. Open the address that veltra-serve has printed last.";
            } else if (!response.ok) {
                const answer = await response.json();
                problem = answer.error + (answer.fix ? ". " + answer.fix : "");
            }
        } catch (error) {
            problem = "veltra-serve cannot be reached.";
        }
        const isEnding = command.do === "fault" && command.kind === "die";  // not answered by the service
        setText(get("notice"), isEnding ? "" : problem);
    }

    // Values of the device by their keys, without their sections. What is not known is not in it.
    function valuesOf(device) {
        const all = Object.assign({}, device, ...SECTIONS.map(section => device?.[section]));
        const numbers = Object.entries(all).filter(([key, value]) => typeof value === "number");
        return Object.fromEntries(numbers.filter(([key, value]) => key !== "tempLevel" || value >= 0));
    }

    const sum = (items, key) => Object.values(items || {}).reduce((total, item) => total + item[key], 0);

    // How many there were a second since the state before; null if that was of another service.
    function ratesOf(state) {
        const seconds = before && before.service && state.service && before.service.pid === state.service.pid ? state.t - before.t : 0;
        const rate = (name, key, items, others) => seconds > 0 ? (items - others) / seconds : null;
        return {
            calls: rate("calls", "count", sum(state.calls, "count"), sum(before?.calls, "count")),
            pushes: rate("pushes", "sent", sum(state.pushes, "sent"), sum(before?.pushes, "sent")),
            of: name => seconds > 0 ? (state.calls[name].count - (before.calls[name]?.count || 0)) / seconds : null,
        };
    }

    function addPoint(state, rates) {
        const values = state.trouble ? {} : valuesOf(state.device);
        if (rates.calls !== null) {
            values.callsPerSecond = rates.calls;
            values.pushesPerSecond = rates.pushes;
        }
        if (points.t.length > 0 && state.t <= points.t[points.t.length - 1]) {
            return;  // the same look again, after the stream was opened anew
        }
        points.t.push(state.t);
        for (const key of new Set([...Object.keys(points.values), ...Object.keys(values)])) {
            points.values[key] ||= points.t.slice(1).map(() => null);
            points.values[key].push(values[key] ?? null);
        }
        if (points.t.length > MOST_POINTS) {
            points.t.shift();
            Object.values(points.values).forEach(list => list.shift());
        }
        while (marks.length > 0 && marks[0].t < points.t[0]) {
            marks.shift();
        }
        curves.set(points, marks);
        get("noCurves").hidden = get("curves").childElementCount > 0;
    }

    function addMarks(state) {
        const isSimulated = state.simulation?.active === true;
        if (before?.service && state.service && before.service.pid !== state.service.pid) {
            marks.push({t: state.t, kind: "fault", text: "the service was started again"});
        }
        if (before?.service && isSimulated !== (before.simulation?.active === true)) {
            marks.push({t: state.t, kind: "change", text: isSimulated ? "simulation" : "the real machine"});
        }
    }

    function fillTable(id, headings, rows, empty) {
        const table = get(id);
        const wanted = JSON.stringify([headings, rows]);
        if (table.wanted === wanted) {
            return;
        }
        table.wanted = wanted;
        table.replaceChildren();
        if (rows.length === 0) {
            made("caption", table, empty);
            return;
        }
        const head = made("tr", made("thead", table));
        headings.forEach(heading => { made("th", head, heading.text).className = heading.kind; });
        head.querySelectorAll("th").forEach(cell => { cell.scope = "col"; });
        const body = made("tbody", table);
        for (const row of rows) {
            const line = made("tr", body);
            row.forEach((text, i) => { made("td", line, text).className = headings[i].kind; });
        }
    }

    const text = name => ({text: name, kind: "text"});
    const number = name => ({text: name, kind: "number"});
    const shown = (value, decimals = 0) => typeof value === "number" ? value.toFixed(decimals) : "";

    function fillTables(state, rates) {
        const games = (state.games || []).map(game => [game.bundle || "", game.program || "", shown(game.pid), shown(game.state)]);
        const more = (state.gamesCount || games.length) - games.length;
        if (more > 0) {
            games.push(["and " + more + " more", "", "", ""]);
        }
        fillTable("games", [text("bundle"), text("program"), number("process"), number("state")], games, "No process has reported a game.");
        fillTable("pushes", [text("what"), number("sent"), number("failed"), number("dropped")],
                  Object.entries(state.pushes || {}).map(([name, push]) => [name, shown(push.sent), shown(push.failed), shown(push.dropped)]),
                  "Nothing was pushed.");
        fillTable("calls", [text("operation"), number("1/s"), number("calls"), number("refused"), number("p50 µs"), number("p99 µs"), number("worst µs")],
                  Object.entries(state.calls || {}).map(([name, call]) => [
                      name, shown(rates.of(name), 1), shown(call.count), shown(call.refused), shown(call.p50us, 1), shown(call.p99us, 1), shown(call.maxus, 1)]),
                  "No operation has been called.");
        const names = Object.keys(state.calls || {});
        if (get("operations").childElementCount !== names.length) {
            get("operations").replaceChildren(...names.map(name => new Option(name, name)));
        }
    }

    function showStatus(state) {
        const status = get("status");
        document.body.classList.toggle("gone", Boolean(state.trouble));
        status.className = state.trouble ? "bad" : "good";
        setText(status, state.trouble ? state.trouble + ". This page goes on when it is back."
            : "Service " + state.service.version + ", process " + state.service.pid + ", runs");
    }

    function showSimulation(simulation) {
        const isActive = simulation?.active === true;
        const parts = [];
        if (isActive && simulation.scenario !== undefined) {
            parts.push("scenario " + simulation.scenario + " at " + shown(simulation.timeSeconds) + " s" + (simulation.paused ? ", paused" : ""));
        }
        const values = Object.keys(simulation?.values || {});
        if (values.length > 0) {
            parts.push(values.join(", "));
        }
        for (const fault of simulation?.faults || []) {
            parts.push("fault " + fault.kind + (fault.operation ? " of " + fault.operation : ""));
        }
        get("simulated").hidden = !isActive;
        setText(get("simulatedText"), isActive ? "Games get simulated values: " + parts.join("; ") : "");
        get("pause").disabled = !(isActive && simulation.scenario !== undefined);
        setText(get("pause"), simulation?.paused ? "Resume" : "Pause");
    }

    // Sliders follow the device, except for the one that is being moved.
    function showValues(state) {
        const values = valuesOf(state.device);
        for (const [key, {row, input, output, release}] of inputs) {
            const isSet = state.simulation?.values?.[key] !== undefined;
            row.classList.toggle("isSet", isSet);
            release.disabled = !isSet || !token;
            if (key !== isMoving && document.activeElement !== input) {
                input.value = values[key] ?? input.min;
            }
            if (key !== isMoving) {
                setText(output, values[key] === undefined ? "–" : values[key] + (input.unit ? " " + input.unit : ""));
            }
        }
    }

    function takeState(state) {
        showStatus(state);
        addMarks(state);
        const rates = ratesOf(state);
        addPoint(state, rates);
        if (!state.trouble) {
            fillTables(state, rates);
            showSimulation(state.simulation);
            showValues(state);
        }
        before = state;
    }

    // Sends the last position soon after a move, and each one after the pause.
    function sendWhileMoving(key, input) {
        let timer = 0;
        let sent = "";
        const flush = () => {
            timer = 0;
            if (input.value !== sent && input.value !== "") {
                sent = input.value;
                send({do: "set", values: {[key]: Number(input.value)}});
            }
        };
        return isLast => {
            if (isLast) {
                clearTimeout(timer);
                flush();
                sent = "";
            } else {
                timer ||= setTimeout(flush, SEND_PAUSE);
            }
        };
    }

    function addValue(field) {
        const row = made("div", get(FIRST_VALUES.includes(field.key) ? "values" : "moreValues"));
        row.className = "value";
        const label = made("label", row, field.key);
        const input = made("input", row);
        input.id = label.htmlFor = "value-" + field.key;
        input.type = field.most > MOST_OF_A_SLIDER ? "number" : "range";
        input.min = field.least;
        input.max = field.most;
        input.step = 1;
        input.unit = field.unit;
        input.disabled = !token;
        const output = made("output", row, "–");
        output.htmlFor = input.id;
        const release = made("button", row, "×");
        release.type = "button";
        release.disabled = true;
        release.setAttribute("aria-label", "Release " + field.key);
        release.title = "Release this value";
        release.addEventListener("click", () => send({do: "release", keys: [field.key]}));
        const sendMoved = sendWhileMoving(field.key, input);
        input.addEventListener("input", () => {
            isMoving = field.key;
            setText(output, input.value + (field.unit ? " " + field.unit : ""));
            if (input.type === "range") {
                sendMoved(false);
            }
        });
        input.addEventListener("change", () => {
            isMoving = "";
            sendMoved(true);
        });
        inputs.set(field.key, {row, input, output, release});
    }

    function takeSetup(given) {
        if (setup !== null) {
            return;  // of the same server after a break, or of one of the same version
        }
        setup = given;
        const canWrite = !setup.isReadOnly && token !== "";
        token = canWrite ? token : "";
        get("simulator").hidden = setup.isReadOnly;
        get("readOnly").hidden = canWrite;
        get("real").hidden = !canWrite;
        const order = field => (FIRST_VALUES.indexOf(field.key) + FIRST_VALUES.length + 1) % (FIRST_VALUES.length + 1);
        [...setup.fields].sort((left, right) => order(left) - order(right)).forEach(addValue);
        get("scenario").replaceChildren(...setup.scenarios.map(name => new Option(name, name)));
        get("fault").replaceChildren(...setup.faults.map(kind => new Option(kind, kind)));
        if (!canWrite) {
            get("controls").querySelectorAll("button, input, select").forEach(element => { element.disabled = true; });
        }
    }

    function triggerFault() {
        const kind = get("fault").value;
        const command = {do: "fault", kind};
        if (kind !== "die") {
            command.for = Number(get("faultSeconds").value);
            if (get("operation").value !== "") {
                command.operation = get("operation").value;
            }
        }
        send(command);
    }

    function addCommands() {
        const onClick = (id, run) => get(id).addEventListener("click", run);
        get("controls").addEventListener("submit", event => event.preventDefault());
        onClick("real", () => send({do: "off"}));
        onClick("load", () => send({do: "load", name: get("scenario").value}));
        onClick("pause", () => send({do: get("pause").textContent === "Resume" ? "resume" : "pause"}));
        onClick("go", () => send({do: "seek", seconds: Number(get("seek").value)}));
        onClick("trigger", triggerFault);
        onClick("sendEvent", () => send({do: "event", text: get("eventText").value}));
        get("speed").addEventListener("change", () => send({do: "speed", factor: Number(get("speed").value)}));
    }

    function listen() {
        const stream = new EventSource("/events");
        stream.addEventListener("setup", event => takeSetup(JSON.parse(event.data)));
        stream.addEventListener("state", event => takeState(JSON.parse(event.data)));
        stream.addEventListener("error", () => {
            showStatus({trouble: "The connection to veltra-serve is lost"});
            if (stream.readyState === EventSource.CLOSED) {  // refused: the browser does not try again by itself
                setTimeout(listen, REOPEN_PAUSE);
            }
        });
    }

    takeToken();
    addCommands();
    listen();
})();
