// page_sound.h - sound inside a page: coded so that every browser plays it, in a data: URI.
#ifndef VQNS_PAGE_SOUND_H
#define VQNS_PAGE_SOUND_H

#include <string>

#include "audio_output.h"

namespace vqns_tool {

enum class Coding { kFlac, kMp3 };  // without loss, or small

// Kept in a file without a name: nothing of it is left when the program ends.
struct PageSound {
    Coding coding = Coding::kFlac;
    int rate = 0, channels = 0;
    int descriptor = -1;
    AudioOutput output;  // while it is being written

    PageSound() = default;
    PageSound(const PageSound&) = delete;
    PageSound& operator=(const PageSound&) = delete;
    ~PageSound();
};

// Whether the coding takes such sound, and browsers play it.
bool can_code(Coding coding, int rate, int channels);

// All throw Failure. Frames go to `sound.output` in between.
void open_page_sound(PageSound& sound, Coding coding, int rate, int channels);
void close_page_sound(PageSound& sound);

// The same sound in another coding, which may be slow.
void recode(PageSound& sound, Coding coding);

int64_t data_uri_size(const PageSound& sound);
void write_data_uri(ReplacedFile& file, const PageSound& sound);

std::string base64(std::string_view bytes);

}  // namespace vqns_tool

#endif
