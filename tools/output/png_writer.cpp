#include "png_writer.h"

#include <png.h>

#include <csetjmp>
#include <stdexcept>
#include <string>

namespace velpick {

namespace {

// libpng reports errors by longjmp; this records the message before it jumps.
struct PngErrorState {
    std::string message = "libpng failed";
};

void OnPngError(png_structp png, png_const_charp message) {
    static_cast<PngErrorState*>(png_get_error_ptr(png))->message = message;
    png_longjmp(png, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}

// Everything between set-up and clean-up, so that no object with a destructor lives in the
// frame that longjmp leaves.
bool WriteRows(png_structp png, png_infop info, std::FILE* stream, const RgbImage& image) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_init_io(png, stream);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
                 static_cast<png_uint_32>(image.height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = image.height - 1; y >= 0; --y) {
        const Rgb* row = &image.At(0, y);
        png_write_row(png, reinterpret_cast<png_const_bytep>(row));
    }
    png_write_end(png, nullptr);
    return true;
}

}  // namespace

void WritePng(std::FILE* stream, const RgbImage& image) {
    static_assert(sizeof(Rgb) == 3, "PNG rows are written straight from the pixels");
    PngErrorState state;
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &state, &OnPngError, &OnPngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    const bool written = info && WriteRows(png, info, stream, image);
    png_destroy_write_struct(&png, &info);
    if (!written)
        throw std::runtime_error(state.message);
}

}  // namespace velpick
