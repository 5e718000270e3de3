"""The baresip module: calls between two real baresips on the loopback interface, without sound hardware. The caller
plays a noisy recording, both ends write down what passes behind the filter; all calls of the tests run at once."""
import os
import random
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

BARESIP = hosts.need_program("baresip", "baresip-core")
MODULES = Path("/usr/lib/baresip/modules")
NEEDED = ("l16", "g711", "opus", "aufile", "sndfile", "cons", "account", "menu")
MODULE = hosts.need_built("plugins/baresip/vqns.so", "libre-dev and librem-dev")
GCC = hosts.need_program("gcc", "gcc")
# Preloaded, it ends a program that has lost memory with status 23; Debian's baresip has no such check built in.
LEAK_CHECK = hosts.run(GCC, "-print-file-name=liblsan.so").stdout.strip()
if not Path(LEAK_CHECK).is_absolute():
    hosts.skip("liblsan.so", "libgcc-12-dev")

CONFIG = """\
poll_method epoll
net_interface 127.0.0.1
sip_listen 127.0.0.1:{port}
cons_listen 127.0.0.1:{console}
rtp_ports {rtp}-{rtp_end}
audio_path /nonexistent
audio_source aufile,{source}
jitter_buffer_delay 5-500
ausrc_format s16
auenc_format s16
statmode_default off
opus_stereo yes
opus_sprop_stereo yes
snd_path {folder}
module_path {modules}
module l16.so
module g711.so
module opus.so
module aufile.so
module cons.so
{filters}
module_tmp account.so
module_app menu.so
{settings}
"""


def free_ports(count):
    """The first of `count` free ports in a row, below those that the system gives away by itself."""
    while True:
        first = random.randrange(10000, 32000)
        try:
            for port in range(first, first + count):
                for kind in (socket.SOCK_DGRAM, socket.SOCK_STREAM):
                    with socket.socket(socket.AF_INET, kind) as probe:
                        probe.bind(("127.0.0.1", port))
            return first
        except OSError:
            continue


class Softphone:
    """A baresip with one account. filters: modules in the order of the config file."""

    def __init__(self, folder, codec, source, filters, settings="", dial=None, program=BARESIP, preload=None):
        self.folder = folder
        folder.mkdir()
        modules = folder / "modules"
        modules.mkdir()
        for module in [MODULES / f"{name}.so" for name in NEEDED] + [MODULE]:
            (modules / module.name).symlink_to(module)
        self.port = free_ports(12)
        self.console = self.port + 2
        (folder / "config").write_text(CONFIG.format(
            port=self.port, console=self.console, rtp=self.port + 4, rtp_end=self.port + 11, source=source,
            folder=folder, modules=modules, filters="\n".join(f"module {f}.so" for f in filters), settings=settings))
        (folder / "accounts").write_text(
            f"<sip:user@127.0.0.1:{self.port}>;regint=0;answermode=auto;audio_codecs={codec}\n")
        with open(folder / "log", "w", encoding="utf8") as log:
            self.process = subprocess.Popen(
                ["stdbuf", "-oL", program, "-f", folder] + (["-e", f"/dial sip:user@127.0.0.1:{dial}"] if dial else []),
                stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT,
                env=os.environ | ({"LD_PRELOAD": str(preload)} if preload else {}))

    def log(self):
        return (self.folder / "log").read_text(encoding="utf8")

    def wait_for(self, text, seconds=60):
        """Until the log has the text."""
        end = time.monotonic() + seconds
        while text not in self.log():
            if time.monotonic() > end or self.process.poll() is not None:
                raise AssertionError(f"no '{text}' in the log of {self.folder}:\n{self.log()}")
            time.sleep(0.05)

    def command(self, line):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as console:
            console.sendto(line.encode() + b"\n", ("127.0.0.1", self.console))

    def quit(self):
        """Ends it as a user's interrupt does; returns its status."""
        self.process.send_signal(signal.SIGINT)
        return self.process.wait(30)

    def recorded(self, direction):
        """The samples [frame, channel] that passed there, enc or dec."""
        file, = self.folder.glob(f"dump-*-{direction}.wav")
        return soundfile.read(file, dtype="float32" if "FLOAT" in soundfile.info(file).subtype else "int16",
                              always_2d=True)[0]


class Call:
    """Started, a call of which the caller hangs up when its recording ends. `caller` and `callee` are settings of the
    module in there; None leaves it out. heard_as: how the callee's decoder makes its samples."""

    def __init__(self, folder, codec, caller=None, callee=None, preload=None, heard_as="s16"):
        self.rate, self.channels = (int(number) for number in codec.split("/")[1:])
        folder.mkdir()
        self.source, self.answer = folder / "source.wav", folder / "answer.wav"
        hosts.noisy(self.source, self.rate, self.channels)
        hosts.noisy(self.answer, self.rate, self.channels, silence=10)
        # Filters run in the order of the config file on what is sent and against it on what is received.
        self.callee = Softphone(folder / "callee", codec, self.answer, ["sndfile"] + ["vqns"] * (callee is not None),
                                f"audec_format {heard_as}\n{callee or ''}", preload=preload)
        self.callee.wait_for("baresip is ready")
        self.caller = Softphone(folder / "caller", codec, self.source, ["vqns"] * (caller is not None) + ["sndfile"],
                                caller or "", dial=self.callee.port, preload=preload)

    def finish(self):
        self.caller.wait_for("terminated")
        self.callee.wait_for("session closed")
        return self.caller.quit(), self.callee.quit()


LIMITED = "vqns_direction both\nvqns_attenuation_limit 20\nvqns_level no\naudec_format s24_3le"
CALLS = {
    "plain": ("l16/16000/1", {}),
    "sent": ("l16/16000/1", {"caller": ""}),
    "both": ("l16/16000/1", {"callee": "vqns_direction both", "preload": LEAK_CHECK}),
    "limited": ("l16/48000/2", {"caller": LIMITED}),
    "telephone": ("pcmu/8000/1", {"caller": "", "preload": LEAK_CHECK}),
    "opus plain": ("opus/48000/2", {"heard_as": "float"}),
    "opus sent": ("opus/48000/2", {"caller": "", "heard_as": "float"}),
    "opus received": ("opus/48000/2", {"callee": "vqns_direction receive", "heard_as": "float"}),
}


class BaresipTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.folder = Path(holder.name)
        cls.calls = {}
        try:
            for name, (codec, options) in CALLS.items():
                cls.calls[name] = Call(cls.folder / name.replace(" ", "-"), codec, **options)
            telephone = cls.calls["telephone"].caller
            telephone.wait_for("Call established")
            time.sleep(2)
            telephone.command("/rmmod vqns.so")  # in the middle of the call
            cls.statuses = {name: call.finish() for name, call in cls.calls.items()}
        finally:
            for call in cls.calls.values():
                for phone in (call.caller, call.callee):
                    if phone.process.poll() is None:
                        phone.process.kill()
                        phone.process.wait()

    def expect_denoised(self, recorded, source, *options):
        """That what was recorded is, sample for sample, what the program makes of the source, as late as it says."""
        expected = hosts.denoised(source, *options)
        late = recorded[hosts.latency(soundfile.info(source).samplerate):]
        count = min(len(late), len(expected))
        self.assertGreater(count, 7 * soundfile.info(source).samplerate)
        np.testing.assert_array_equal(late[:count], expected[:count])

    def test_end(self):
        """All quit with status 0, those under the leak check too, and the one that lost its module in the call."""
        self.assertEqual(self.statuses, {name: (0, 0) for name in CALLS})
        self.assertIn("unloading module: vqns.so", self.calls["telephone"].caller.log())

    def test_sent(self):
        """The far end of a lossless call hears what the program makes of the recording, at the sender's settings."""
        sent, limited = self.calls["sent"], self.calls["limited"]
        self.expect_denoised(sent.callee.recorded("dec"), sent.source)
        self.expect_denoised(limited.callee.recorded("dec"), limited.source, "--attenuation-limit", 20, "--no-level")
        for name in ("telephone", "opus sent"):  # before the lossy codec
            with self.subTest(name):
                self.expect_denoised(self.calls[name].caller.recorded("enc"), self.calls[name].source)

    def test_received(self):
        """Received sound is denoised on request, and then what is sent only if asked for."""
        both, received = self.calls["both"], self.calls["opus received"]
        self.expect_denoised(both.callee.recorded("dec"), both.source)
        self.expect_denoised(both.caller.recorded("dec"), both.answer)
        sent = received.callee.recorded("enc")
        np.testing.assert_array_equal(sent, soundfile.read(received.answer, dtype="int16")[0][:len(sent)])

    def test_floating_point(self):
        """Sound in floating point comes out as 16-bit sound of the same values does."""
        heard = self.calls["opus plain"].callee.recorded("dec")  # the same packets, decoded the same
        reference = self.folder / "heard.wav"
        soundfile.write(reference, np.rint(np.clip(heard * 32768, -32768, 32767)).astype(np.int16), 48000)
        recorded = self.calls["opus received"].callee.recorded("dec")
        self.assertEqual(recorded.dtype, np.float32)
        self.expect_denoised(recorded * 32768, reference)

    def test_levels(self):
        """Whatever the codec, the far end hears far less noise in pauses than without the module, and the speech."""
        for plain, sent in (("plain", "sent"), ("plain", "telephone"), ("opus plain", "opus sent")):
            with self.subTest(sent):
                (speech, pauses), (speech_sent, pauses_sent) = self.heard_levels(plain), self.heard_levels(sent)
                self.assertLess(pauses_sent, pauses - 25)
                self.assertTrue(0 < speech_sent - speech < 6, (speech, speech_sent))

    def heard_levels(self, name):
        """Levels of speech and pauses at the far end, first channel."""
        call = self.calls[name]
        source = soundfile.read(call.source, dtype="int16", always_2d=True)[0][:, 0]
        heard = call.callee.recorded("dec")[:, 0]
        heard = heard * 32768 if heard.dtype == np.float32 else heard
        delay = hosts.delay_between(source, heard, call.rate // 4)
        return hosts.levels(heard[delay:], call.rate, hosts.speech_frames(call.source, len(source) * 100 // call.rate))

    def test_log(self):
        """Settings and streams are announced; sound that cannot be denoised brings one warning."""
        def settings(direction="send", limit="none", levelling="on"):
            return f"direction {direction}, attenuation limit {limit}, levelling {levelling}"

        def stream(what, rate, channels, samples):
            delay = round(1000 * hosts.latency(rate) / rate)
            return f"denoising what is {what}: {rate} Hz, {channels} ch, {samples}, delay {delay} ms"

        for phone, lines in (
                (self.calls["sent"].caller, [settings(), stream("sent", 16000, 1, "S16LE")]),
                (self.calls["opus received"].callee, [settings("receive"), stream("received", 48000, 2, "FLOAT")]),
                (self.calls["limited"].caller, [
                    settings("both", "20.0 dB", "off"), stream("sent", 48000, 2, "S16LE"),
                    "samples of format S24_3LE cannot be denoised: what is received passes as it is"])):
            with self.subTest(phone.folder):
                self.assertEqual(re.findall("vqns: (.+)", phone.log()), lines)

    def idle(self, name, **options):
        """What the module said in a baresip that is started, and ends with status 0."""
        phone = Softphone(self.folder / name, "l16/16000/1", "none", ["vqns"], **options)
        phone.wait_for("baresip is ready")
        self.assertEqual(phone.quit(), 0)
        return phone, re.findall("vqns: (.+)", phone.log())

    def test_wrong_settings(self):
        """They are named, and the default stands."""
        _, said = self.idle("wrong", settings="vqns_direction up\nvqns_level maybe\nvqns_attenuation_limit -3")
        self.assertEqual(said, ["vqns_direction is send, receive or both, not 'up': taken as send",
                                "vqns_level is yes or no, not 'maybe': taken as yes",
                                "vqns_attenuation_limit is a number of dB from 0 up, not '-3': taken as none",
                                "direction send, attenuation limit none, levelling on"])

    def test_other_versions(self):
        """A baresip without frames of sound, or with longer ones, is told so in a clear line and runs without the
        module."""
        program, longer = self.folder / "other-baresip", self.folder / "longer_frames.so"
        program.write_bytes(Path(BARESIP).read_bytes().replace(b"\0auframe_init\0", b"\0auframe_left\0"))
        program.chmod(0o755)
        (self.folder / "longer_frames.c").write_text("""
            struct frame { int fmt; void *sampv; unsigned long sampc, timestamp, more; };
            void auframe_init(struct frame *f, int fmt, void *sampv, unsigned long sampc) {
                *f = (struct frame){fmt, sampv, sampc, 0, 0};
            }""")
        hosts.run(GCC, "-shared", "-fPIC", "-o", longer, self.folder / "longer_frames.c")
        for name, preload in (("none", None), ("longer", longer)):
            with self.subTest(name):
                phone, said = self.idle(name, program=program, preload=preload)
                self.assertEqual(said, ["made for baresip 1.0, and this is another version: not loaded"])
                self.assertNotIn("aufilt: vqns", phone.log())


if __name__ == "__main__":
    hosts.main()
