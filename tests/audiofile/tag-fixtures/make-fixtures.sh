#!/usr/bin/env bash
# Makes the small tagged files that the tag tests read, with other programs'
# writers: python3-mutagen (ID3v2.3 and 2.4 chunks in WAV and AIFF) and
# ffmpeg (an ID3v2 chunk in AIFF, an INFO list in WAV). Run once by hand;
# the files are kept beside this script:
#   apt-get install python3-mutagen ffmpeg && ./make-fixtures.sh
set -euo pipefail
cd "$(dirname "$0")"

/usr/bin/python3 - <<'PY'
import aifc, struct, wave
import mutagen.aiff, mutagen.wave
from mutagen.id3 import (APIC, COMM, POPM, TCON, TIT2, TPE1, TRCK, TXXX, TDRC, TALB)

# 40 frames of a ramp, 16-bit stereo, 44100 Hz: easy to compare after edits.
frames = b"".join(struct.pack("<hh", i * 700 - 14000, 14000 - i * 700) for i in range(40))

def write_wav(name):
    with wave.open(name, "wb") as out:
        out.setnchannels(2); out.setsampwidth(2); out.setframerate(44100)
        out.writeframes(frames)

def write_aiff(name):
    with aifc.open(name, "wb") as out:
        out.setnchannels(2); out.setsampwidth(2); out.setframerate(44100)
        # AIFF stores big-endian samples.
        out.writeframes(b"".join(frames[i:i + 2][::-1] for i in range(0, len(frames), 2)))

def fill(tags, wide):
    artist = "Bj\u00f6rk" if wide else "Artist"
    tags.add(TIT2(encoding=1 if wide else 0, text=["Title \u00e9" if wide else "Title"]))
    tags.add(TPE1(encoding=3 if wide else 0, text=[artist]))
    tags.add(TALB(encoding=0, text=["Album"]))
    tags.add(TRCK(encoding=0, text=["2/10"]))
    tags.add(TCON(encoding=0, text=["(17)"]))
    tags.add(TXXX(encoding=0, desc="replaygain_track_gain", text=["-6.50 dB"]))
    tags.add(COMM(encoding=0, lang="eng", desc="", text=["A comment"]))
    tags.add(POPM(email="u@example.org", rating=205))
    tags.add(APIC(encoding=0, mime="image/png", type=3, desc="Cover",
                  data=b"\x89PNG\r\n\x1a\n" + bytes(range(24))))

for name, version, wide in (("mutagen-v23.wav", 3, False), ("mutagen-v24.wav", 4, True)):
    write_wav(name)
    audio = mutagen.wave.WAVE(name)
    audio.add_tags()
    fill(audio.tags, wide)
    if version == 4:
        audio.tags.add(TDRC(encoding=0, text=["2000-01-01"]))
    audio.save(v2_version=version)

for name, version, wide in (("mutagen-v23.aiff", 3, False), ("mutagen-v24.aiff", 4, True)):
    write_aiff(name)
    audio = mutagen.aiff.AIFF(name)
    audio.add_tags()
    fill(audio.tags, wide)
    audio.save(v2_version=version)
PY

ffmpeg -v error -y -f lavfi -i "sine=frequency=440:sample_rate=44100:duration=0.001" -ac 2 \
  -c:a pcm_s16be -metadata title="FF Title" -metadata artist="FF Artist" \
  -metadata album="FF Album" -write_id3v2 1 ffmpeg-id3.aiff
ffmpeg -v error -y -f lavfi -i "sine=frequency=440:sample_rate=44100:duration=0.001" -ac 2 \
  -c:a pcm_s16le -bitexact -metadata title="FF Title" -metadata artist="FF Artist" \
  -metadata genre="Jazz" ffmpeg-info.wav
