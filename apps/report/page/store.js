// SPDX-License-Identifier: MIT
/* Remembers settings in this browser, those of a song and those of every page. A browser may refuse to. */
class Store {
    static delay = 300; // milliseconds, so that a moving fader is written once

    constructor(name) {
        this.key = `tonwerk ${name}`;
        this.values = this.read();
    }

    read() {
        try {
            const values = JSON.parse(localStorage.getItem(this.key));
            return values !== null && typeof values === 'object' ? values : {};
        } catch {
            return {};
        }
    }

    put(values) {
        Object.assign(this.values, values);
        clearTimeout(this.timer);
        this.timer = setTimeout(() => this.write(), Store.delay);
    }

    write() {
        try {
            localStorage.setItem(this.key, JSON.stringify(this.values));
        } catch {
            // The page works without.
        }
    }
}
