// SPDX-License-Identifier: MIT
/* The part of the song that the pictures show, in seconds. Event: "change". */
class View extends EventTarget {
    static shortest = 2; // seconds

    constructor(duration) {
        super();
        this.duration = duration;
        this.start = 0;
        this.end = duration;
    }

    get length() {
        return this.end - this.start;
    }

    get isWhole() {
        return this.length >= this.duration;
    }

    show(start, end) {
        const length = Math.min(Math.max(end - start, Math.min(View.shortest, this.duration)), this.duration);
        this.start = Math.min(Math.max(start, 0), this.duration - length);
        this.end = this.start + length;
        this.dispatchEvent(new Event('change'));
    }

    /** Makes the part longer or shorter; a time stays in its place. */
    zoom(factor, time) {
        const length = Math.min(Math.max(this.length * factor, Math.min(View.shortest, this.duration)), this.duration);
        const start = time - ((time - this.start) / this.length) * length;
        this.show(start, start + length);
    }

    move(seconds) {
        this.show(this.start + seconds, this.start + seconds + this.length);
    }

    has(time) {
        return time >= this.start && time <= this.end;
    }

    /** Turns the page if a time is not in view. */
    follow(time) {
        if (this.has(time)) return;
        const start = time - 0.05 * this.length;
        this.show(start, start + this.length);
    }

    /** Where a time is, as a fraction of the width. */
    fractionOf(time) {
        return (time - this.start) / this.length;
    }

    timeAt(fraction) {
        return this.start + fraction * this.length;
    }
}

/* The outline of a track: lowest, highest and RMS value of even stretches, -127 to 127 of its peak. */
class Outline {
    constructor({ framesPerColumn, columns }, sampleRate) {
        const bytes = Uint8Array.from(atob(columns), (character) => character.charCodeAt(0));
        this.values = new Int8Array(bytes.buffer);
        this.count = this.values.length / 3;
        this.columnsPerSecond = sampleRate / framesPerColumn;
    }

    /** Lowest, highest and RMS value between two times. */
    between(from, to) {
        const first = Math.max(Math.floor(from * this.columnsPerSecond), 0);
        const last = Math.min(Math.max(Math.ceil(to * this.columnsPerSecond), first + 1), this.count);
        let [lowest, highest, squares] = [0, 0, 0];
        for (let place = 3 * first; place < 3 * last; place += 3) {
            lowest = Math.min(lowest, this.values[place]);
            highest = Math.max(highest, this.values[place + 1]);
            squares += this.values[place + 2] ** 2;
        }
        return { lowest, highest, rms: last > first ? Math.sqrt(squares / (last - first)) : 0 };
    }

    /**
     * Draws a part on a canvas in its text colour: the extremes pale, the RMS value in full.
     * @param {number} height part of half the canvas that the track's peak reaches
     */
    draw(canvas, start, end, height) {
        const { clientWidth, clientHeight } = canvas;
        const ratio = devicePixelRatio;
        [canvas.width, canvas.height] = [Math.round(clientWidth * ratio), Math.round(clientHeight * ratio)];
        const context = canvas.getContext('2d');
        context.fillStyle = getComputedStyle(canvas).color;
        const middle = canvas.height / 2;
        const scale = (height * middle) / 127;
        const seconds = (end - start) / canvas.width;
        for (let x = 0; x < canvas.width; ++x) {
            const { lowest, highest, rms } = this.between(start + x * seconds, start + (x + 1) * seconds);
            context.globalAlpha = 0.45;
            context.fillRect(x, middle - highest * scale, 1, Math.max((highest - lowest) * scale, 1));
            context.globalAlpha = 1;
            context.fillRect(x, middle - rms * scale, 1, 2 * rms * scale);
        }
    }
}
