#pragma once

// The small in-place base64 codec the mail agent uses for the user name and
// the password of AUTH LOGIN: standard alphabet, "=" padding, no line breaks.
// Every function works on NUL-terminated text and answers true on success.

enum EDSwitch { EDSwitchEncode = 0, EDSwitchDecode = 1 };

// 0 encodes, 1 decodes `text` in place; any other switch answers true
// without touching the text.
bool base64(int sw, char *text);

// Refuses (false, text unchanged) a text holding a byte of 128 or more.
// On success the encoded form replaces the text, which must have room for
// 4 * ((n + 2) / 3) + 1 bytes. An empty text has nothing to encode: false.
bool b64encode(char *text);

// The length must be a multiple of 4, "=" may only fill the last one or two
// places, every other character must be in the alphabet; otherwise false and
// the text is unchanged. On success the decoded bytes replace the text.
bool b64decode(char *text);

// Zero-filled room for the result plus one byte, owned by the caller (free()):
// 4 * ((n + 2) / 3) for encoding, 3 * (n / 4) for decoding. An empty text
// gets none; a failed allocation says so on standard output.
char *b64buffer(const char *text, bool encoding);

// Replaces `*c` by its 6-bit value; answers whether it was in the alphabet.
bool b64valid(char *c);

// Frees `buffer` and answers false: the failure path of the codec.
bool b64isnot(const char *text, char *buffer);
