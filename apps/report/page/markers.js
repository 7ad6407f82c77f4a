// SPDX-License-Identifier: MIT
/* Named places in the song, sorted by time, as a row of buttons. Event: "change". */
class Markers extends EventTarget {
    /** @param {(time: number, next: number | null) => void} goTo is told the next marker's time if the user loops */
    constructor(goTo) {
        super();
        this.goTo = goTo;
        this.list = [];
    }

    /** @param {{time: number, name: string}[]} list in seconds */
    replace(list) {
        this.list = [...list].sort((one, other) => one.time - other.time);
        byId('markers').hidden = this.list.length === 0;
        byId('markers').replaceChildren(...this.list.map((marker, index) => this.chip(marker, index)));
        this.dispatchEvent(new Event('change'));
    }

    add(time) {
        const numbers = this.list.map(({ name }) => Number(/^Marker (\d+)$/.exec(name)?.[1] ?? 0));
        this.replace([...this.list, { time, name: `Marker ${Math.max(0, ...numbers) + 1}` }]);
    }

    /** The first marker after a time or the last one before it. */
    near(time, isAfter) {
        const tolerance = 0.5; // seconds: while it plays, "before" is not the marker just passed
        return isAfter ? this.list.find((marker) => marker.time > time + 0.01)
            : this.list.findLast((marker) => marker.time < time - tolerance);
    }

    chip(marker, index) {
        const chip = document.createElement('span');
        chip.className = 'group joined';
        const jump = chip.appendChild(document.createElement('button'));
        jump.textContent = `${marker.name} ${clock(marker.time)}`;
        jump.title = 'Go there; with Shift, loop up to the next marker';
        jump.addEventListener('click', (event) =>
            this.goTo(marker.time, event.shiftKey ? this.list[index + 1]?.time ?? Infinity : null));
        const edit = chip.appendChild(document.createElement('button'));
        edit.textContent = '\u2026';
        edit.className = 'icon';
        edit.setAttribute('aria-label', `Rename or delete ${marker.name}`);
        edit.title = 'Rename or delete';
        edit.addEventListener('click', () => this.edit(marker));
        return chip;
    }

    edit(marker) {
        const name = prompt('Name of the marker; empty deletes it', marker.name);
        if (name === null) return;
        const others = this.list.filter((other) => other !== marker);
        this.replace(name.trim() === '' ? others : [...others, { ...marker, name: name.trim() }]);
    }
}
