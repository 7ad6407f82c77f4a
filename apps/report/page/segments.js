// SPDX-License-Identifier: MIT
/*
 * Loads the sound of all tracks in segments of some seconds.
 *
 * A page from the local disk may run a script beside it but read no other file: fetch() is refused, and an audio
 * element that is led through the Web Audio API falls silent. So each segment is a script, player/NUMBER.js, that calls
 * stemSegment with FLAC files in Base64, which the browser decodes sample by sample.
 */
class SegmentLoader {
    static arrived = new Map();

    static nominalRate = 44100; // of the FLAC files, whatever the song's is: at it the browser converts nothing

    constructor() {
        this.decoder = new OfflineAudioContext(2, 1, SegmentLoader.nominalRate);
    }

    /** @returns {Promise<Part[]>} see TrackSamples */
    async load(index) {
        const script = document.createElement('script');
        script.src = `player/${index}.js`;
        const loaded = new Promise((resolve, reject) => Object.assign(script, { onload: resolve, onerror: reject }));
        document.head.append(script);
        await loaded.catch(() => {});
        script.remove();
        const tracks = SegmentLoader.arrived.get(index);
        SegmentLoader.arrived.delete(index);
        if (!tracks) throw new Error(script.getAttribute('src'));
        return Promise.all(tracks.map((track) => track && this.decode(...track)));
    }

    async decode(scale, text) {
        const bytes = Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
        const sound = await this.decoder.decodeAudioData(bytes.buffer);
        const channels = Array.from({ length: sound.numberOfChannels }, (_, channel) =>
            Int16Array.from(sound.getChannelData(channel), (value) => Math.round(value * 32768)));
        return { scale, channels };
    }
}

/** Called by a segment's script. @param {([number, string] | null)[]} tracks scale and FLAC file, null for silence */
function stemSegment(index, tracks) {
    SegmentLoader.arrived.set(index, tracks);
}
