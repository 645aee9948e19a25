// SPDX-License-Identifier: Apache-2.0
// Draws what the page of a report has in its element "data": one entry for each recording, with its curves, how many calls
// there were, and its marks. Recordings side by side have the same axes and one cursor.
"use strict";
{
    const entries = JSON.parse(document.getElementById("data").textContent);
    const all = entries.flatMap(entry => [entry.device, entry.rates]);
    const options = {sync: "report", bounds: VeltraCurves.bounds(all)};
    for (const element of document.querySelectorAll(".curves")) {
        const entry = entries[Number(element.dataset.index)];
        VeltraCurves.create(element, options).set(entry.device, entry.marks);
        VeltraCurves.create(element, options).set(entry.rates, entry.marks);
    }
}
