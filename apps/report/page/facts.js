// SPDX-License-Identifier: MIT
/* The page's data as texts, and the drawer with the facts. */

const data = JSON.parse(document.getElementById('data').textContent);
const byId = (id) => document.getElementById(id);

/** 3:07.4 */
function clock(seconds, digits = 1) {
    const rounded = Number(seconds.toFixed(digits));
    const hours = Math.floor(rounded / 3600);
    const minutes = Math.floor(rounded / 60) % 60;
    const rest = (rounded % 60).toFixed(digits).padStart(digits ? 3 + digits : 2, '0');
    return hours ? `${hours}:${String(minutes).padStart(2, '0')}:${rest}` : `${minutes}:${rest}`;
}

/** A number with a true minus sign. */
const number = (value, digits) => value.toFixed(digits).replace('-', '\u2212');

/** A factor as text; null stands for what is no finite number. */
function decibels(factor, unit = 'dB') {
    if (factor === null) return 'not finite';
    return `${factor > 0 ? number(20 * Math.log10(factor), 1) : '\u2212\u221e'} ${unit}`.trim();
}

const titleOf = (name) => (name[0].toUpperCase() + name.slice(1)).replaceAll('_', ' ');

function buildFacts() {
    document.title = `${data.name} \u2013 stems`;
    byId('name').textContent = data.name;
    byId('duration').textContent = clock(data.seconds);
    byId('made').textContent = `Separated by tonwerk-separate ${data.version} with the model ${data.model}`
        + `${data.license ? ` (licence of its weights: ${data.license.replace(/\.$/, '')})` : ''}.`;
    const facts = [
        ['Length', clock(data.seconds)],
        ['Format', `${data.sampleRate / 1000} kHz, ${data.channels === 1 ? 'mono' : 'stereo'}`],
        ['Speed', `${(data.seconds / data.processingSeconds).toFixed(1)} \u00d7 real time`],
        ['Null test', data.nullPeak === 0 ? 'exact' : decibels(data.nullPeak, 'dBFS')],
    ];
    if (data.nonFiniteSamples > 0) facts.push(['Samples that are no numbers', String(data.nonFiniteSamples)]);
    for (const [term, text] of facts) {
        const fact = byId('facts').appendChild(document.createElement('div'));
        fact.append(document.createElement('dt'), document.createElement('dd'));
        fact.firstChild.textContent = term;
        fact.lastChild.textContent = text;
    }
    buildRow('Original', data.song, null);
    for (const stem of data.stems) buildRow(titleOf(stem.name), stem, `${stem.name}.wav`);
}

/** A row of the table of files. */
function buildRow(title, { peak, rms }, file) {
    const row = byId('files').insertRow();
    row.appendChild(document.createElement('th')).textContent = title;
    for (const text of peak === 0 ? ['silent', ''] : [decibels(peak, ''), decibels(rms, '')])
        row.insertCell().textContent = text;
    const cell = row.insertCell();
    if (file === null) return;
    const link = cell.appendChild(document.createElement('a'));
    link.href = encodeURIComponent(file);
    link.textContent = file;
}
