// fax_params: the parameters of a fax call as the single characters that header attributes hold.
#pragma once

namespace faxtray {

// Code to character, 0 for a code out of range. The highest code of each means "not known": a blank.
char VRtoascii(int code);  // vertical resolution
char BRtoascii(int code);  // bit rate
char WDtoascii(int code);  // page width
char LNtoascii(int code);  // page length
char DFtoascii(int code);  // data format (compression)
char ECtoascii(int code);  // error correction
char BFtoascii(int code);  // binary file transfer
char STtoascii(int code);  // scan time

// Character to code, -1 for any other character.
int asciitoVR(signed char c);
int asciitoBR(signed char c);
int asciitoWD(signed char c);
int asciitoLN(signed char c);
int asciitoDF(signed char c);
int asciitoEC(signed char c);
int asciitoBF(signed char c);
int asciitoST(signed char c);

const char *VRtostring(int code);
const char *DFtostring(int code);

}  // namespace faxtray
