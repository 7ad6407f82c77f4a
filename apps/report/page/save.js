// SPDX-License-Identifier: MIT
/* Makes a WAV file of 24 bits of what the player would play. A mix that would clip is lowered as a whole. */
class MixSaver {
    static blockFrames = 4096;
    static margin = 3; // seconds around the position whose segments the engine has

    /** @param {(fraction: number) => boolean} goesOn is told the progress, and false ends it */
    constructor(song, loader, goesOn) {
        Object.assign(this, { song, loader, goesOn });
    }

    /**
     * @param {object} settings of the engine
     * @param {{start: number, end: number}} region in samples
     * @returns {Promise<{file: Blob, lowered: number} | null>} the factor of its samples; null if it was stopped
     */
    async save(settings, region) {
        const first = await this.render(settings, region, 1);
        if (!first || first.peak <= 1) return first && { file: first.file, lowered: 1 };
        const lowered = 0.999 / first.peak;
        const second = await this.render(settings, region, lowered);
        return second && { file: second.file, lowered };
    }

    async render(settings, { start, end }, factor) {
        const engine = new MixEngine(this.song);
        engine.frame = start;
        engine.set({ ...settings, playing: true });
        const length = Math.round((end - start) / settings.speed);
        const parts = [];
        const block = [new Float32Array(MixSaver.blockFrames), new Float32Array(MixSaver.blockFrames)];
        for (let done = 0; done < length; done += MixSaver.blockFrames) {
            await this.provide(engine, start + done * settings.speed);
            if (!this.goesOn(done / length)) return null;
            engine.level = 1; // neither fades at the start nor at the end of the song
            engine.process(...block);
            const count = Math.min(MixSaver.blockFrames, length - done);
            parts.push(this.encoded(block.map((channel) => channel.subarray(0, count)), factor));
        }
        return { file: new Blob([this.header(length), ...parts], { type: 'audio/wav' }), peak: engine.peak };
    }

    async provide(engine, position) {
        const { segmentFrames, frames, sampleRate } = this.song;
        const near = [-MixSaver.margin, MixSaver.margin].map((seconds) =>
            Math.floor(Math.min(Math.max(position + seconds * sampleRate, 0), frames - 1) / segmentFrames));
        const wanted = [...new Set([near[0], Math.floor(Math.min(position, frames - 1) / segmentFrames), near[1]])];
        engine.samples.keepOnly(wanted);
        for (const index of wanted)
            if (!engine.samples.segments.has(index)) engine.samples.put(index, await this.loader.load(index));
    }

    get channels() {
        return this.song.channels;
    }

    encoded(block, factor) {
        const [frames, channels] = [block[0].length, this.channels];
        const bytes = new Uint8Array(3 * channels * frames);
        for (let frame = 0, place = 0; frame < frames; ++frame)
            for (let channel = 0; channel < channels; ++channel, place += 3) {
                const value = Math.round(factor * block[channel][frame] * 8388608);
                const sample = Math.min(Math.max(value, -8388608), 8388607);
                bytes[place] = sample;
                bytes[place + 1] = sample >> 8;
                bytes[place + 2] = sample >> 16;
            }
        return bytes;
    }

    header(frames) {
        const frameBytes = 3 * this.channels;
        const view = new DataView(new ArrayBuffer(44));
        const put = (place, text) => {
            for (let index = 0; index < text.length; ++index) view.setUint8(place + index, text.charCodeAt(index));
        };
        put(0, 'RIFF');
        view.setUint32(4, 36 + frameBytes * frames, true);
        put(8, 'WAVEfmt ');
        view.setUint32(16, 16, true);
        view.setUint16(20, 1, true);
        view.setUint16(22, this.channels, true);
        view.setUint32(24, this.song.sampleRate, true);
        view.setUint32(28, this.song.sampleRate * frameBytes, true);
        view.setUint16(32, frameBytes, true);
        view.setUint16(34, 24, true);
        put(36, 'data');
        view.setUint32(40, frameBytes * frames, true);
        return view;
    }
}
