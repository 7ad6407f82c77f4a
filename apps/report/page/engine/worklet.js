// SPDX-License-Identifier: MIT
/* In the audio thread: plays what a MixEngine mixes, takes settings and segments, and tells the page where it is. */
if (globalThis.registerProcessor) {
    registerProcessor('stems', class extends AudioWorkletProcessor {
        static blocksPerReport = 8;

        constructor({ processorOptions }) {
            super();
            this.engine = new MixEngine(processorOptions);
            this.count = 0;
            this.turn = 0; // of the page's last message that moved something
            this.port.onmessage = ({ data }) => this.take(data);
        }

        take({ put, keep, set, seek, turn }) {
            const { engine } = this;
            this.turn = turn ?? this.turn;
            if (put) engine.samples.put(put.index, put.parts);
            if (keep) engine.samples.keepOnly(keep);
            if (seek !== undefined) engine.seek(seek);
            if (set) engine.set(set);
            if (seek !== undefined || set) this.report();
        }

        report() {
            const { engine } = this;
            this.port.postMessage({ turn: this.turn, position: engine.position, playing: engine.settings.playing,
                waiting: engine.waiting, peak: engine.peak, match: engine.match });
            engine.peak = 0;
        }

        process(inputs, [[left, right]]) {
            const wasPlaying = this.engine.settings.playing;
            this.engine.process(left, right ?? new Float32Array(left.length));
            if (++this.count % this.constructor.blocksPerReport === 0 || wasPlaying !== this.engine.settings.playing)
                this.report();
            return true;
        }
    });
}
