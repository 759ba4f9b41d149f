#pragma once

// Gives the file open at to the owner, group, extended attributes, access list and mode of the file open
// at from. false if one of them cannot be given; some may have been by then.
bool kpe_copy_attributes(int from, int to);
