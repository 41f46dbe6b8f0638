// The characters of each parameter, in the order of its codes; the last, a blank, is "not known".
#include "faxfile/fax_params.h"

#include <cstddef>
#include <string_view>

namespace faxtray {

// Kept: resolution skips "2"; all fax files have been written so.
static constexpr std::string_view VR_chars = "01345 ";
static constexpr std::string_view BR_chars = "012345 ";
static constexpr std::string_view WD_chars = "01234 ";
static constexpr std::string_view LN_chars = "012 ";
static constexpr std::string_view DF_chars = "0123 ";
static constexpr std::string_view EC_chars = "012 ";
static constexpr std::string_view BF_chars = "01 ";
static constexpr std::string_view ST_chars = "01234567 ";

static constexpr const char *VR_names[] = {"Normal (98 lpi)", "Fine (196 lpi)", "300 lpi", "400 lpi",
                                           "600 lpi"};
static constexpr const char *DF_names[] = {"MH (1-D)", "MR (2-D)", "UMMR (Uncompressed MMR)", "MMR"};

// The same three look-ups serve all the parameters.
static char to_char(std::string_view chars, int code)
{
    return code >= 0 && static_cast<size_t>(code) < chars.size() ? chars[static_cast<size_t>(code)] : '\0';
}

static int to_code(std::string_view chars, signed char c)
{
    size_t at = chars.find(static_cast<char>(c));
    return at == chars.npos ? -1 : static_cast<int>(at);
}

template <size_t n> static const char *to_name(const char *const (&names)[n], int code, const char *unknown)
{
    return code >= 0 && static_cast<size_t>(code) < n ? names[code] : unknown;
}

char VRtoascii(int code)
{
    return to_char(VR_chars, code);
}

char BRtoascii(int code)
{
    return to_char(BR_chars, code);
}

char WDtoascii(int code)
{
    return to_char(WD_chars, code);
}

char LNtoascii(int code)
{
    return to_char(LN_chars, code);
}

char DFtoascii(int code)
{
    return to_char(DF_chars, code);
}

char ECtoascii(int code)
{
    return to_char(EC_chars, code);
}

char BFtoascii(int code)
{
    return to_char(BF_chars, code);
}

char STtoascii(int code)
{
    return to_char(ST_chars, code);
}

int asciitoVR(signed char c)
{
    return to_code(VR_chars, c);
}

int asciitoBR(signed char c)
{
    return to_code(BR_chars, c);
}

int asciitoWD(signed char c)
{
    return to_code(WD_chars, c);
}

int asciitoLN(signed char c)
{
    return to_code(LN_chars, c);
}

int asciitoDF(signed char c)
{
    return to_code(DF_chars, c);
}

int asciitoEC(signed char c)
{
    return to_code(EC_chars, c);
}

int asciitoBF(signed char c)
{
    return to_code(BF_chars, c);
}

int asciitoST(signed char c)
{
    return to_code(ST_chars, c);
}

const char *VRtostring(int code)
{
    return to_name(VR_names, code, "Unknown Vertical Resolution");
}

const char *DFtostring(int code)
{
    return to_name(DF_names, code, "Unknown Compression Format");
}

}  // namespace faxtray
