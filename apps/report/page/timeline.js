// SPDX-License-Identifier: MIT
/*
 * Where things are in time: ruler, playhead, loop region and markers on the rows and on the small timeline of the whole
 * song, and what mouse and touch do there.
 */
class Timeline {
    static clickWidth = 5; // pixels, up to which it is no drag
    static edgeWidth = { mouse: 6, touch: 22, pen: 10 }; // pixels around a loop's edge that take hold of it
    static shortestLoop = 0.05; // seconds

    constructor(player, view, channels, markers) {
        Object.assign(this, { player, view, channels, markers });
        this.rate = player.song.sampleRate;
        this.mini = byId('mini');
        this.drag = null;
        this.timeBefore = 0; // where the playhead stood when it was last shown
        this.isDrawn = true;
        for (const row of channels.rows) this.bindRow(row.querySelector('.pictures'));
        this.bindMini();
        view.addEventListener('change', () => this.redraw());
        markers.addEventListener('change', () => this.redraw());
        new ResizeObserver(() => this.redraw()).observe(byId('tracks'));
    }

    get loop() {
        const { on, start, end } = this.player.loop;
        return { on, start: start / this.rate, end: end / this.rate };
    }

    /** Draws everything before the next frame. */
    redraw() {
        this.isDrawn = false;
    }

    show() {
        if (!this.isDrawn) {
            this.isDrawn = true;
            this.showTicks();
            this.channels.draw(this.mini.querySelector('canvas'));
            this.showMarkers();
            this.showLoop();
            this.place(this.mini.querySelector('.window'), this.view.start, this.view.end, true);
        }
        const { time } = this.player;
        // Only what plays out of the view turns the page, not a user who looks elsewhere.
        if (this.player.playing && !this.drag && this.view.has(this.timeBefore)) this.view.follow(time);
        this.timeBefore = time;
        byId('tracks').style.setProperty('--playhead', this.view.has(time) ? this.view.fractionOf(time) : -1);
        this.mini.style.setProperty('--playhead', time / this.view.duration);
    }

    /** Puts an element between two times, on a row or on the small timeline. */
    place(element, start, end, isMini) {
        const fraction = (time) => (isMini ? time / this.view.duration : this.view.fractionOf(time));
        const [left, right] = [start, end].map((time) => Math.min(Math.max(fraction(time), -0.01), 1.01));
        element.style.left = `${100 * left}%`;
        element.style.width = `${100 * (right - left)}%`;
    }

    showTicks() {
        const steps = [0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 1800, 3600];
        const { start, end, length } = this.view;
        const wanted = Math.max(Math.floor(byId('ticks').clientWidth / 90), 2);
        const step = steps.find((candidate) => length / candidate <= wanted) ?? 7200;
        const labels = [];
        for (let tick = Math.ceil(start / step); tick * step < end - 0.04 * length; ++tick) {
            const label = document.createElement('span');
            label.textContent = clock(tick * step, step < 1 ? 1 : 0);
            label.style.left = `${100 * this.view.fractionOf(tick * step)}%`;
            labels.push(label);
        }
        byId('ticks').replaceChildren(...labels);
    }

    showLoop() {
        const { on, start, end } = this.loop;
        const isPart = start > 0 || end < this.view.duration - 0.001;
        byId('loopText').textContent =
            on || isPart ? `Loop ${on ? '' : '(off) '}${clock(start)} \u2013 ${clock(end)}` : '';
        for (const region of document.querySelectorAll('.region')) {
            region.hidden = !isPart;
            region.classList.toggle('off', !on);
            this.place(region, start, end, this.mini.contains(region));
        }
    }

    showMarkers() {
        const line = (time, isMini) => {
            const element = document.createElement('i');
            element.className = 'marker';
            this.place(element, time, time, isMini);
            return element;
        };
        for (const pictures of document.querySelectorAll('.pictures, .mini')) {
            for (const old of pictures.querySelectorAll('.marker')) old.remove();
            pictures.append(...this.markers.list.map(({ time }) => line(time, pictures === this.mini)));
        }
    }

    /** Sets the loop region between two times. */
    setLoop(from, to, on = true) {
        const shortest = Math.min(Timeline.shortestLoop, this.view.duration);
        const start = Math.min(Math.max(Math.min(from, to), 0), this.view.duration - shortest);
        const end = Math.min(Math.max(from, to, start + shortest), this.view.duration);
        this.player.setLoop({ on, start: start * this.rate, end: end * this.rate });
    }

    /** Goes to a time; outside of the loop region the loop ends. */
    goTo(time) {
        const { on, start, end } = this.loop;
        if (on && (time < start || time >= end)) this.player.setLoop({ ...this.player.loop, on: false });
        this.player.seek(time * this.rate);
        this.view.follow(this.player.time);
    }

    static fractionAt(element, event) {
        const { left, width } = element.getBoundingClientRect();
        return Math.min(Math.max((event.clientX - left) / width, 0), 1);
    }

    bindRow(pictures) {
        const timeAt = (event) => this.view.timeAt(Timeline.fractionAt(pictures, event));
        pictures.addEventListener('pointerdown', (event) => {
            if (event.button !== 0) return;
            const time = timeAt(event);
            const fixed = this.otherEdge(pictures, event);
            this.drag = { x: event.clientX, time: fixed ?? time, isEdge: fixed !== null, hasMoved: false };
            pictures.setPointerCapture(event.pointerId);
        });
        pictures.addEventListener('pointermove', (event) => {
            if (!this.drag) return;
            this.drag.hasMoved ||= Math.abs(event.clientX - this.drag.x) > Timeline.clickWidth;
            if (this.drag.hasMoved) this.setLoop(this.drag.time, timeAt(event), this.drag.isEdge && this.loop.on);
        });
        pictures.addEventListener('pointerup', (event) => {
            const { drag } = this;
            this.drag = null;
            if (!drag) return;
            if (!drag.hasMoved) return this.goTo(timeAt(event));
            this.setLoop(drag.time, timeAt(event));
            if (!drag.isEdge) this.player.seek(this.player.loop.start);
        });
        pictures.addEventListener('pointercancel', () => (this.drag = null));
        pictures.addEventListener('wheel', (event) => this.turnWheel(event, timeAt(event)), { passive: false });
    }

    /** If the pointer takes hold of one of the loop's edges, the time of the other one. */
    otherEdge(pictures, event) {
        const { start, end } = this.loop;
        if (start === 0 && end >= this.view.duration - 0.001) return null;
        const { left, width } = pictures.getBoundingClientRect();
        const reach = Timeline.edgeWidth[event.pointerType] ?? Timeline.edgeWidth.mouse;
        const distance = (time) => Math.abs(left + width * this.view.fractionOf(time) - event.clientX);
        if (Math.min(distance(start), distance(end)) > reach) return null;
        return distance(start) < distance(end) ? end : start;
    }

    turnWheel(event, time) {
        const sideways = event.shiftKey ? event.deltaY : event.deltaX;
        if (event.ctrlKey || event.metaKey) this.view.zoom(1.002 ** event.deltaY, time);
        else if (sideways !== 0 && !this.view.isWhole) this.view.move((sideways / 1000) * this.view.length);
        else return;
        event.preventDefault();
    }

    /** The small timeline: a press goes there, and what is zoomed in moves along. */
    bindMini() {
        const move = (event) => {
            const time = Timeline.fractionAt(this.mini, event) * this.view.duration;
            this.goTo(time);
            if (!this.view.isWhole) this.view.show(time - this.view.length / 2, time + this.view.length / 2);
        };
        this.mini.addEventListener('pointerdown', (event) => {
            if (event.button !== 0) return;
            this.mini.setPointerCapture(event.pointerId);
            move(event);
        });
        this.mini.addEventListener('pointermove', (event) => {
            if (this.mini.hasPointerCapture(event.pointerId)) move(event);
        });
    }
}
