// SPDX-License-Identifier: MIT
/*
 * Plays several audio files as one.
 *
 * A page from the local disk may play a file beside it but not read it: fetch() is refused, and an audio element that
 * is led through the Web Audio API falls silent. So every stem has an audio element of its own. They are started
 * together once all of them are ready. Even so some start tens of milliseconds apart, and would stay so. So the stems
 * follow the one in the middle: one that is far off is silent for the moment in which a quite different speed brings it
 * back, and what is less is made up by changes of speed too small to be heard.
 *
 * Events: "change" when the state has changed, "failure" with a `detail` of the file that cannot be played.
 */
class StemPlayer extends EventTarget {
    static tickMilliseconds = 20;
    static nearlyEqual = 0.002; // seconds, that are left alone
    static apart = 0.01; // seconds, that silence a stem while the stems find together
    static findingTogether = 1500; // milliseconds after a start
    static echo = 0.025; // seconds, that silence it later on: a busy machine reads positions too early or too late
    static tooFar = 0.25; // seconds, that a change of speed would take too long for
    static gentle = { largestChange: 0.01, seconds: 0.2 }; // a sixth of a semitone at most
    static fast = { largestChange: 0.2, seconds: 0.16 };
    static longestSilence = 1000; // milliseconds, after which a stem is heard wherever it is
    static longestWait = 5000; // milliseconds for a file to get ready, after which the others do not wait for it

    /**
     * @param {HTMLAudioElement[]} elements one per stem, with their sources
     * @param {number} duration length of the song in seconds
     */
    constructor(elements, duration) {
        super();
        this.duration = duration;
        this.elements = elements;
        this.playing = false;
        this.loop = { on: false, start: 0, end: duration };
        this.turn = 0; // counts moves and starts, so that what was overtaken by a later one can tell
        this.aim = 0; // where a move leads that is still under way
        this.timer = 0;
        this.launchedAt = 0;
        this.silences = new Map(); // how many milliseconds each element has been silent to catch up
        for (const element of elements) {
            element.preservesPitch = false; // resampling, not time-stretching, while it catches up
            element.addEventListener('error', () => this.drop(element));
        }
    }

    /** The position in seconds. */
    get time() {
        if (this.aim !== null || this.elements.length === 0) return this.aim ?? 0;
        return Math.min(this.elements[0].currentTime, this.duration);
    }

    toggle() {
        return this.playing ? this.pause() : this.play();
    }

    play() {
        if (this.elements.length === 0) return Promise.resolve();
        this.playing = true;
        const time = this.time;
        const outside = this.loop.on && (time < this.loop.start || time >= this.loop.end - 0.01);
        const atEnd = time >= this.duration - 0.02;
        return this.moveTo(outside ? this.loop.start : atEnd ? 0 : time);
    }

    pause() {
        this.playing = false;
        return this.moveTo(this.time); // all to the same place, and whatever is under way is overtaken
    }

    /** Goes to a position and plays on from there if it was playing. */
    async moveTo(seconds) {
        const time = Math.min(Math.max(seconds, 0), this.duration);
        const turn = ++this.turn;
        this.aim = time;
        this.halt();
        this.changed();
        await Promise.all(this.elements.map((element) => this.settle(element, time)));
        if (turn !== this.turn) return;
        if (this.playing) await this.launch(turn);
        else this.aim = null;
        this.changed();
    }

    /** @param {{on: boolean, start: number, end: number}} loop replaces the loop region */
    setLoop(loop) {
        this.loop = loop;
        if (loop.on && this.playing && (this.time < loop.start || this.time >= loop.end)) this.moveTo(loop.start);
        this.changed();
    }

    changed() {
        this.dispatchEvent(new Event('change'));
    }

    drop(element) {
        this.elements = this.elements.filter((other) => other !== element);
        if (this.elements.length === 0) this.playing = false;
        this.dispatchEvent(new CustomEvent('failure', { detail: element.getAttribute('src') }));
        this.changed();
    }

    halt() {
        clearInterval(this.timer);
        for (const element of this.elements) {
            element.pause();
            element.playbackRate = 1;
            element.muted = false;
        }
    }

    /** Puts an element to a time and waits until it could play from there. */
    async settle(element, time) {
        const events = ['loadedmetadata', 'seeked', 'canplay', 'error', 'ended'];
        const until = (isDone) =>
            new Promise((resolve) => {
                const finish = () => {
                    clearTimeout(timeout);
                    for (const event of events) element.removeEventListener(event, look);
                    resolve();
                };
                const look = () => {
                    if (element.error || isDone()) finish();
                };
                const timeout = setTimeout(finish, StemPlayer.longestWait);
                for (const event of events) element.addEventListener(event, look);
                look();
            });
        await until(() => element.readyState >= HTMLMediaElement.HAVE_METADATA);
        if (Math.abs(element.currentTime - time) > 0.0001) element.currentTime = time;
        const atEnd = time >= this.duration - 0.05;
        const enough = atEnd ? HTMLMediaElement.HAVE_CURRENT_DATA : HTMLMediaElement.HAVE_FUTURE_DATA;
        await until(() => !element.seeking && element.readyState >= enough);
    }

    async launch(turn) {
        const starts = await Promise.allSettled(this.elements.map((element) => element.play()));
        if (turn !== this.turn) return;
        if (starts.some((start) => start.status === 'rejected' && start.reason.name === 'NotAllowedError')) {
            this.playing = false;
            return this.halt();
        }
        this.aim = null;
        this.launchedAt = performance.now();
        this.silences = new Map();
        this.timer = setInterval(() => this.tick(), StemPlayer.tickMilliseconds);
        this.tick();
    }

    tick() {
        const [first] = this.elements;
        if (!first) return this.halt();
        const end = this.loop.on ? this.loop.end : this.duration;
        if (first.ended || first.currentTime >= end - 0.005) return void this.reachEnd();
        const times = this.elements.map((element) => element.currentTime).sort((one, other) => one - other);
        const middle = times[times.length >> 1];
        for (const element of this.elements) this.hold(element, middle);
    }

    reachEnd() {
        if (!this.loop.on) this.playing = false;
        this.moveTo(this.loop.on ? this.loop.start : this.duration);
    }

    /** Leads an element to where it should be now. */
    hold(element, time) {
        const late = time - element.currentTime;
        const difference = Math.abs(late);
        if (difference > StemPlayer.tooFar && !element.seeking) element.currentTime = time;
        const silence = this.silences.get(element) ?? 0;
        const isNew = performance.now() - this.launchedAt < StemPlayer.findingTogether;
        const bearable = element.muted ? StemPlayer.nearlyEqual : isNew ? StemPlayer.apart : StemPlayer.echo;
        element.muted = difference > bearable && silence < StemPlayer.longestSilence;
        const tick = StemPlayer.tickMilliseconds;
        this.silences.set(element, element.muted ? silence + tick : Math.max(silence - tick / 2, 0));
        const { largestChange, seconds } = element.muted ? StemPlayer.fast : StemPlayer.gentle;
        const change = Math.min(Math.max(late / seconds, -largestChange), largestChange);
        const isNear = difference < (element.playbackRate === 1 ? StemPlayer.nearlyEqual : StemPlayer.nearlyEqual / 4);
        element.playbackRate = isNear ? 1 : 1 + change;
    }
}
