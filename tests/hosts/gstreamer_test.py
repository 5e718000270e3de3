"""vqnsdenoise in GStreamer: gst-inspect, files through gst-launch, its pads driven buffer by buffer, and a call over
RTP on the loopback interface."""
import json
import os
import re
import signal
import socket
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import numpy as np
import soundfile

import hosts

PLUGIN = hosts.need_built("plugins/gstreamer/libgstvqns.so", "libgstreamer-plugins-base1.0-dev")
INSPECT = hosts.need_program("gst-inspect-1.0", "gstreamer1.0-tools")
LAUNCH = hosts.need_program("gst-launch-1.0", "gstreamer1.0-tools")
FOLDER = tempfile.TemporaryDirectory()
HERE = Path(FOLDER.name)
os.environ.update(GST_PLUGIN_PATH=str(PLUGIN.parent), GST_REGISTRY=str(HERE / "registry"))
for needed, package in (("opusenc", "gstreamer1.0-plugins-base"), ("wavparse", "gstreamer1.0-plugins-good")):
    if subprocess.run([INSPECT, "--exists", needed]).returncode != 0:
        hosts.skip(f"GStreamer's {needed}", package)
try:
    import gi
    gi.require_version("Gst", "1.0")
    from gi.repository import Gst
except (ImportError, ValueError):
    hosts.skip("GStreamer for Python", "python3-gi and gir1.2-gstreamer-1.0")
Gst.init(None)

RATES = (8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000)
SPEECH = re.compile(r"vqns-speech-(start|end), channel=\(int\)(\d+), timestamp=\(guint64\)(\d+), "
                    r"stream-time=\(guint64\)(\d+), running-time=\(guint64\)(\d+)")


def launch(description, *options):
    """Runs a pipeline to its end; returns what gst-launch printed."""
    return hosts.run(LAUNCH, *options, *description.split()).stdout


def through(path, properties="", source="", caps=""):
    """A file's samples after the element, as wavenc wrote them, and what gst-launch printed."""
    out = HERE / "out.wav"
    printed = launch(f"filesrc location={path} {source} ! wavparse ! audioconvert {caps} ! "
                     f"vqnsdenoise {properties} ! wavenc ! filesink location={out}", "-m")
    return soundfile.read(out, dtype="float32" if "F32" in caps else "int16", always_2d=True)[0], printed


def spoken(path, *options):
    """Start and end of a file's segments of speech, in seconds."""
    printed = hosts.run(hosts.PROGRAM, "vad", path, "--format", "json", "--quiet", *options).stdout
    return [(s["start"], s["end"]) for s in json.loads(printed)["segments"]]


def model(frames, rate, *options):
    """What the program makes of samples."""
    path = HERE / "model.wav"
    soundfile.write(path, frames, rate, subtype="PCM_16")
    return hosts.denoised(path, *options)


class Element:
    """The element between two pads of ours: what is pushed has gone through when the call returns."""

    def __init__(self, rate, channels=1, upstream=(False, 0, Gst.CLOCK_TIME_NONE), **properties):
        self.element = Gst.ElementFactory.make("vqnsdenoise")
        for name, value in properties.items():
            self.set(name, value)
        self.bus, self.stretches, self.events, self.upstream = Gst.Bus.new(), [], [], upstream
        self.marked_as_silence = 0
        self.element.set_bus(self.bus)
        self.source = Gst.Pad.new("s", Gst.PadDirection.SRC)
        self.sink = Gst.Pad.new_from_template(
            Gst.PadTemplate.new("d", Gst.PadDirection.SINK, Gst.PadPresence.ALWAYS, Gst.Caps.new_any()), "d")
        self.source.set_query_function_full(self._query)
        self.sink.set_chain_function_full(self._take)
        self.sink.set_event_function_full(self._event)
        self.source.link(self.element.get_static_pad("sink"))
        self.element.get_static_pad("src").link(self.sink)
        for pad in (self.source, self.sink):
            pad.set_active(True)
        self.element.set_state(Gst.State.PLAYING)
        self.source.push_event(Gst.Event.new_stream_start("test"))
        self.caps(rate, channels)
        self.segment()

    def __del__(self):
        self.element.set_state(Gst.State.NULL)

    def _query(self, pad, parent, query):
        if query.type != Gst.QueryType.LATENCY:
            return pad.query_default(parent, query)
        query.set_latency(*self.upstream)
        return True

    def _take(self, _pad, _parent, buffer):
        rate, channels = self.format
        self.marked_as_silence += buffer.has_flags(Gst.BufferFlags.GAP)
        frames = np.frombuffer(buffer.extract_dup(0, buffer.get_size()), np.int16).reshape(-1, channels)
        last = self.stretches[-1] if self.stretches else None
        if last and last["open"] and abs(last["at"] + len(last["frames"]) / rate - buffer.pts / 1e9) < 2e-9:
            last["frames"] = np.concatenate([last["frames"], frames])
        else:
            self.stretches.append({"at": buffer.pts / 1e9, "frames": frames, "open": True})
        return Gst.FlowReturn.OK

    def _event(self, _pad, _parent, event):
        self.events.append(event.type)
        if event.type == Gst.EventType.CAPS:
            structure = event.parse_caps().get_structure(0)
            self.format = structure.get_value("rate"), structure.get_value("channels")
        for stretch in self.stretches:
            stretch["open"] = False
        return True

    def set(self, name, value):
        self.element.set_property(name.replace("_", "-"), value)

    def caps(self, rate, channels=1):
        self.source.push_event(Gst.Event.new_caps(Gst.Caps.from_string(
            f"audio/x-raw,format=S16LE,layout=interleaved,rate={rate},channels={channels}"
            + (",channel-mask=(bitmask)3" if channels == 2 else ""))))
        self.rate = rate

    def segment(self, start=0.0):
        segment = Gst.Segment()
        segment.init(Gst.Format.TIME)
        segment.start = segment.time = round(start * 1e9)
        self.source.push_event(Gst.Event.new_segment(segment))

    def push(self, frames, at, discont=False, sizes=(320,), silent=False):
        """Pushes samples from a time on (None: without timestamps), in buffers of these sizes in turn."""
        done, number = 0, 0
        while done < len(frames):
            count = sizes[number % len(sizes)]
            buffer = Gst.Buffer.new_wrapped(frames[done:done + count].tobytes())
            if at is not None:
                buffer.pts = round((at + done / self.rate) * 1e9)
            if discont and number == 0:
                buffer.set_flags(Gst.BufferFlags.DISCONT)
            if silent:
                buffer.set_flags(Gst.BufferFlags.GAP)
            assert self.source.push(buffer) == Gst.FlowReturn.OK
            done, number = done + count, number + 1

    def flush(self):
        self.source.push_event(Gst.Event.new_flush_start())
        self.source.push_event(Gst.Event.new_flush_stop(True))
        self.segment()

    def gap(self, at, duration):
        self.source.push_event(Gst.Event.new_gap(round(at * 1e9), round(duration * 1e9)))

    def end(self):
        self.source.push_event(Gst.Event.new_eos())

    def latency(self):
        query = Gst.Query.new_latency()
        assert self.sink.peer_query(query)
        return tuple(query.parse_latency())

    def messages(self, channel):
        """(start or end, its timestamp, stream time and running time) of a channel's changes of speech."""
        found = []
        while message := self.bus.pop_filtered(Gst.MessageType.ELEMENT):
            kind, of, *times = SPEECH.match(message.get_structure().to_string()).groups()
            found += [(kind, *map(int, times))] if int(of) == channel else []
        return found


class GStreamer(unittest.TestCase):
    def same(self, found, expected, what):
        self.assertEqual(found.shape, expected.shape, what)
        different = np.flatnonzero((found != expected).any(1))
        self.assertEqual(len(different), 0, f"{what}: differs from frame {different[:1]} on")

    def test_inspect(self):
        printed = hosts.run(INSPECT, "vqnsdenoise").stdout
        for pattern in (r"format: \{ \(string\)S16LE, \(string\)F32LE \}", r"rate: \[ 8000, 192000 \]",
                        r"attenuation-limit .*\n.*controllable, .*PLAYING.*\n.*Range: +0 - +100 Default: +100 ",
                        r"bypass .*\n.*PLAYING.*\n.*Default: false", r"latency .*\n +flags: readable\n",
                        r"detector-mode .*\n.*NULL or READY.*\n.*Range: 0 - 3 Default: 2"):
            self.assertRegex(printed, pattern)
        exported = hosts.run("nm", "-D", "--defined-only", PLUGIN).stdout.split()[2::3]
        self.assertEqual(sorted(exported), ["gst_plugin_vqns_get_desc", "gst_plugin_vqns_register"])

    def test_files_are_what_the_program_makes_of_them(self):
        path = HERE / "in.wav"
        cases = [(rate, 1 + i % 2, "", (), "") for i, rate in enumerate(RATES)] + [
            (48000, 2, "attenuation-limit=12", ("--attenuation-limit", 12), ""),
            (16000, 6, "level=false", ("--no-level",), "blocksize=1201"),
            (44100, 1, "attenuation-limit=99.5 level=false", ("--attenuation-limit", 99.5, "--no-level"), ""),
            (96000, 1, "attenuation-limit=100", (), "blocksize=9001")]
        for rate, channels, properties, options, source in cases:
            with self.subTest(rate=rate, channels=channels, properties=properties):
                # WAVEX: with more than two channels, GStreamer asks where their loudspeakers stand.
                soundfile.write(path, hosts.noisy(path, rate, channels), rate, format="WAVEX")
                found, _ = through(path, properties, source)
                self.same(found, hosts.denoised(path, *options), "file")
        found, _ = through(path, caps="! audio/x-raw,format=F32LE")
        self.same((found * 32768).astype(np.int16), hosts.denoised(path), "in floating point")
        for rate, channels in ((8000, 2), (44100, 1)):
            frames = hosts.noisy(path, rate, channels)
            self.same(through(path, "bypass=true")[0], frames.reshape(-1, channels), f"bypass at {rate} Hz")

    def test_messages_are_the_segments_of_the_program(self):
        path, one = HERE / "in.wav", HERE / "one.wav"
        frames = hosts.noisy(path, 32000, 2)
        for properties, options in (("", ()), ("min-speech=30 min-pause=50", ("--min-speech", .03, "--min-pause", .05)),
                                    ("detector-mode=0 min-pause=1000", ("--mode", 0, "--min-pause", 1))):
            printed = through(path, properties)[1]
            for channel in range(2):
                soundfile.write(one, frames[:, channel], 32000, subtype="PCM_16")
                told = [m for m in SPEECH.findall(printed) if m[1] == str(channel)]
                self.assertEqual([m[0] for m in told], ["start", "end"] * (len(told) // 2))
                self.assertTrue(all(m[2] == m[3] == m[4] for m in told))
                times = np.array([int(m[2]) / 1e9 for m in told]).reshape(-1, 2)
                np.testing.assert_allclose(times, spoken(one, *options), atol=0.001, err_msg=properties)
                self.assertGreater(len(times), 0)
        self.assertNotIn("vqns-speech", through(path, "post-messages=false")[1])

    def test_latency_is_the_delay_that_there_is(self):
        for rate in (*RATES, 192000):
            frames, own = np.ones((20000, 2), np.int16), hosts.latency(rate)
            answer = -(-own * 10**9 // rate)
            for upstream in ((True, 20_000_000, 100_000_000), (False, 0, Gst.CLOCK_TIME_NONE)):
                e = Element(rate, 2, upstream)
                went = 0
                for size in (1, own - 1, 1, 777, 5000):
                    e.push(frames[:size], went / rate, sizes=(size,))
                    went += size
                    came = sum(len(s["frames"]) for s in e.stretches)
                    self.assertEqual(came, max(went - own, 0), f"at {rate} Hz")
                live, least, most = upstream
                most = most + answer if live else most
                self.assertEqual(e.latency(), (live, least + answer, most))
                self.assertEqual(e.element.get_property("latency"), answer)
                self.assertIsNotNone(e.bus.pop_filtered(Gst.MessageType.LATENCY))

    def test_interruptions(self):
        x = hosts.noisy(HERE / "in.wav")[16000:]
        a, b, hole, late = x[:32000], x[32000:56000], np.zeros((320, 1), np.int16), hosts.latency(16000)
        filled, whole, first, second = (model(v, 16000) for v in (np.concatenate([a, hole, b]), x[:56000], a, b))
        stereo = hosts.noisy(HERE / "stereo.wav", 48000, 2)[:48000]
        cut = len(a) - late  # frames of `a` that are out when the next come in, up to
        left = 1 + cut / 16000
        # What is done after `a` from 1 s to 3 s, and the stretches that come out: (start in seconds, samples).
        cases = {
            "lost packet": (lambda e: e.push(b, 3.02, discont=True), [(1, filled)]),
            "gap event": (lambda e: (e.gap(3, .02), e.push(b, 3.02)), [(1, filled)]),
            "marked silence": (lambda e: (e.push(hole, 3, silent=True), e.push(b, 3.02)), [(1, filled)]),
            "segment done": (lambda e: e.source.push_event(Gst.Event.new_segment_done(Gst.Format.TIME, 3 * 10**9)),
                             [(1, first)]),
            "drift": (lambda e: e.push(b, 3.02), [(1, whole[:cut]), (left + .02, whole[cut:])]),
            "drift back": (lambda e: e.push(b, 2.98), [(1, whole[:cut]), (left - .02, whole[cut:])]),
            "rounding": (lambda e: e.push(b, 2.9995, discont=True), [(1, whole[:cut]), (left - .0005, whole[cut:])]),
            "jump": (lambda e: e.push(b, 8, discont=True), [(1, first), (8, second)]),
            "jump back": (lambda e: e.push(b, .5), [(1, first), (.5, second)]),
            "long gap event": (lambda e: (e.gap(3, 5), e.push(b, 8)), [(1, first), (8, second)]),
            "flush": (lambda e: (e.flush(), e.push(b, 3)), [(1, first[:cut]), (3, second)]),
            "new segment": (lambda e: (e.segment(4), e.push(b, 4)), [(1, first), (4, second)]),
            "same segment": (lambda e: (e.segment(), e.push(b, 3)), [(1, whole[:cut]), (left, whole[cut:])]),
            "same caps": (lambda e: (e.caps(16000), e.push(b, 3)), [(1, whole)]),
            "new caps": (lambda e: (e.caps(48000, 2), e.push(stereo, 3)), [(1, first), (3, model(stereo, 48000))]),
            "end and again": (lambda e: (e.end(), e.source.push_event(Gst.Event.new_stream_start("2")), e.segment(),
                                         e.push(b, 9)), [(1, first), (9, second)]),
            "no timestamps": (lambda e: e.push(b, None, sizes=(1, 4000, 77)), [(1, whole)]),
            "empty buffer": (lambda e: (e.source.push(Gst.Buffer.new()), e.push(b, 3)), [(1, whole)]),
        }
        for name, (act, expected) in cases.items():
            with self.subTest(name):
                e = Element(16000)
                e.push(a, 1)
                act(e)
                e.end()
                self.assertEqual([round(s["at"], 6) for s in e.stretches], [round(at, 6) for at, _ in expected])
                for found, (_, samples) in zip(e.stretches, expected):
                    self.same(found["frames"], samples, name)
                self.assertEqual(Gst.EventType.GAP in e.events, name == "long gap event")
                self.assertEqual(e.marked_as_silence, 0)
                told = e.messages(0)
                self.assertGreater(len(told), 0)
                self.assertEqual([m[0] for m in told], ["start", "end"] * (len(told) // 2))
                _, at, stream_time, running_time = told[-1]
                self.assertEqual((stream_time, running_time), (at, at - (4 * 10**9 if name == "new segment" else 0)))
        e = Element(16000)
        e.push(x[:100], 1)
        e.end()
        self.same(e.stretches[0]["frames"], model(x[:100], 16000), "shorter than the delay")
        e = Element(16000)
        e.push(a[:320], None)
        e.push(a[320:], 1.02)
        e.end()
        self.assertEqual([s["at"] for s in e.stretches], [1])
        self.same(e.stretches[0]["frames"], first, "first buffer without a timestamp")

    def test_properties_change_while_playing(self):
        x = hosts.noisy(HERE / "in.wav")[:64000]
        late = hosts.latency(16000)
        e, expected, at = Element(16000, level=False), [], 0
        for properties, options in (({}, ()), ({"attenuation_limit": 6.0}, ("--attenuation-limit", 6)),
                                    ({"bypass": True}, None), ({"bypass": False, "attenuation_limit": 100.0}, ())):
            for name, value in properties.items():
                e.set(name, value)
            e.push(x[at:at + 16000], at / 16000)
            samples = x if options is None else model(x, 16000, "--no-level", *options)
            # From when what is inside has left to when the next change comes.
            expected.append((at + 160, at + 16000 - late, samples))
            at += 16000
        e.end()
        for first, last, samples in expected:
            self.same(e.stretches[0]["frames"][first:last], samples[first:last], f"from frame {first} on")
        self.same(e.stretches[0]["frames"][-late:], expected[-1][2][-late:], "to the end")

    def test_call(self):
        """Opus over RTP into a relay that denoises, on as Opus over RTP, and recorded; all in real time."""
        path, heard, out = HERE / "in.wav", HERE / "heard.wav", HERE / "call.wav"
        x = hosts.noisy(path, 48000)[:, 0]
        sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
        for s in sockets:
            s.bind(("127.0.0.1", 0))
        relay_port, end_port = (s.getsockname()[1] for s in sockets)
        for s in sockets:
            s.close()

        def receive(port):
            return (f"udpsrc address=127.0.0.1 port={port} caps=application/x-rtp,media=audio,clock-rate=48000,"
                    "encoding-name=OPUS,payload=96 ! rtpjitterbuffer latency=200 ! rtpopusdepay ! opusdec ! "
                    "audio/x-raw,channels=1")

        def start(description):
            process = subprocess.Popen([LAUNCH, "-e", "-m", *description.split()], stdout=subprocess.PIPE, text=True)
            self.addCleanup(process.kill)
            return process

        end = start(f"{receive(end_port)} ! wavenc ! filesink location={out}")
        relay = start(f"{receive(relay_port)} ! tee name=t ! queue ! vqnsdenoise ! opusenc ! rtpopuspay ! "
                      f"udpsink host=127.0.0.1 port={end_port} t. ! queue ! wavenc ! filesink location={heard}")
        time.sleep(1)
        began = time.monotonic()
        launch(f"filesrc location={path} ! wavparse ! audioconvert ! opusenc ! rtpopuspay ! "
               f"udpsink host=127.0.0.1 port={relay_port}")
        self.assertGreater(time.monotonic() - began, 7)
        time.sleep(0.5)
        printed = []
        for process in (relay, end):
            process.send_signal(signal.SIGINT)
            printed.append(process.communicate(timeout=20)[0])
            self.assertEqual(process.returncode, 0)
        y, rate = soundfile.read(out, dtype="int16", always_2d=True)
        self.assertEqual(rate, 48000)
        y = y[:, 0]
        y = y[hosts.delay_between(x, y, rate):]
        count = min(len(x), len(y)) * 100 // rate
        self.assertGreater(count, 700)
        speech = hosts.speech_frames(path, count)
        before, after = hosts.levels(x, rate, speech), hosts.levels(y, rate, speech)
        self.assertLess(abs(after[0] - before[0]), 6, f"speech {before[0]:.1f} to {after[0]:.1f} dB")
        self.assertLess(after[1], before[1] - 20, f"pauses {before[1]:.1f} to {after[1]:.1f} dB")
        told = [(m[0], int(m[4]) / 1e9) for m in SPEECH.findall(printed[0])]
        expected = spoken(heard)
        self.assertEqual([m[0] for m in told], ["start", "end"] * len(expected))
        moments = np.array([m[1] for m in told])
        np.testing.assert_allclose(moments - moments[0], np.ravel(expected) - expected[0][0], atol=0.15)


if __name__ == "__main__":
    hosts.main()
