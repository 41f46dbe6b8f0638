#include "client/pixel_picture.h"

#ifdef FAXTRAY_CHAFA
#include <chafa.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "util/owned.h"
#endif

namespace faxtray {

#ifdef FAXTRAY_CHAFA

// A page may be as long as a roll of paper, and takes three bytes a pixel here.
static constexpr long most_rows_shown = 16384;

using terminal_ptr = std::unique_ptr<ChafaTermInfo, deleter<chafa_term_info_unref>>;
using config_ptr = std::unique_ptr<ChafaCanvasConfig, deleter<chafa_canvas_config_unref>>;
using canvas_ptr = std::unique_ptr<ChafaCanvas, deleter<chafa_canvas_unref>>;

static terminal_ptr this_terminal()
{
    return terminal_ptr(chafa_term_db_detect(chafa_term_db_get_default(), environ));
}

// Kitty's protocol comes first: it keeps all shades, sixel has 256 colours.
static ChafaPixelMode pixel_mode(const ChafaTermInfo *terminal)
{
    if (chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_BEGIN_KITTY_IMMEDIATE_IMAGE_V1))
        return CHAFA_PIXEL_MODE_KITTY;
    if (chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_BEGIN_SIXELS))
        return CHAFA_PIXEL_MODE_SIXELS;
    return CHAFA_PIXEL_MODE_SYMBOLS;
}

bool terminal_shows_pixels()
{
    return pixel_mode(this_terminal().get()) != CHAFA_PIXEL_MODE_SYMBOLS;
}

std::string pixel_picture(const grey_image_t &image, int cell_width, int cell_height)
{
    const terminal_ptr terminal = this_terminal();
    const ChafaPixelMode mode = pixel_mode(terminal.get());
    if (mode == CHAFA_PIXEL_MODE_SYMBOLS)
        return "";
    const int height = static_cast<int>(std::min(image.height, most_rows_shown));
    const config_ptr config(chafa_canvas_config_new());
    chafa_canvas_config_set_pixel_mode(config.get(), mode);
    chafa_canvas_config_set_cell_geometry(config.get(), cell_width, cell_height);
    chafa_canvas_config_set_geometry(config.get(), (image.width + cell_width - 1) / cell_width,
                                     (height + cell_height - 1) / cell_height);
    const canvas_ptr canvas(chafa_canvas_new(config.get()));
    std::vector<unsigned char> rgb;
    const size_t pixels = static_cast<size_t>(image.width) * static_cast<size_t>(height);
    rgb.reserve(pixels * 3);
    for (size_t i = 0; i < pixels; i++)
        rgb.insert(rgb.end(), 3, image.rows[i]);
    chafa_canvas_draw_all_pixels(canvas.get(), CHAFA_PIXEL_RGB8, rgb.data(), image.width, height,
                                 image.width * 3);
    GString *printed = chafa_canvas_print(canvas.get(), terminal.get());
    std::string text(printed->str, printed->len);
    g_string_free(printed, TRUE);
    return text + "\n";
}

#else

bool terminal_shows_pixels()
{
    return false;
}

std::string pixel_picture(const grey_image_t &, int, int)
{
    return "";
}

#endif

}  // namespace faxtray
