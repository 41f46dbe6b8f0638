// fax_params: the parameters of a fax call as the single characters that header attributes hold.
//
// Only VR and DF are used by our programs. The other six are
// for the fax system's other programs; none here calls them.
#pragma once

namespace faxtray {

// DF codes (data format): how the pages of a fax are coded.
enum : int {
    DF_MH = 0,    // ITU-T T.4, one-dimensional
    DF_MR = 1,    // T.4, two-dimensional
    DF_UMMR = 2,  // uncompressed MMR; nothing here reads or writes it
    DF_MMR = 3,   // T.6
};

// From code to character, 0 for a code out of range. The highest code of each means "not known", a blank.
char VRtoascii(int code);  // vertical resolution
char BRtoascii(int code);  // bit rate
char WDtoascii(int code);  // page width
char LNtoascii(int code);  // page length
char DFtoascii(int code);  // data format (compression)
char ECtoascii(int code);  // error correction
char BFtoascii(int code);  // binary file transfer
char STtoascii(int code);  // scan time

// From character to code, -1 for any other character.
int asciitoVR(signed char c);
int asciitoBR(signed char c);
int asciitoWD(signed char c);
int asciitoLN(signed char c);
int asciitoDF(signed char c);
int asciitoEC(signed char c);
int asciitoBF(signed char c);
int asciitoST(signed char c);

// For display, as in "Fine (196 lpi)" and "MMR"; "Unknown ..." for any other code.
const char *VRtostring(int code);
const char *DFtostring(int code);

}  // namespace faxtray
