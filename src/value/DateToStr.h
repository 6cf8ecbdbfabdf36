// Date patterns for texts: fields of a date put into a pattern of $ tokens.
#pragma once

#include "base/CString.h"

// Copies pattern to out and replaces, in the order year, month, day, hour, minute, second, every plain token ($Y $M $D
// $h $m $s) by the number; only where a field's plain token occurs nowhere, its padded token ($2Y $2M $2D $2h $2m $2s)
// is replaced instead. Padding is two digits with zeros, but blanks for the year: intended behaviour.
// So a plain token leaves the same field's padded tokens standing.
// Returns what the last replacement counted: how many second tokens were replaced. out may be pattern.
int DateToStr(int year, int month, int day, int hour, int minute, int second, const CString& pattern, CString& out);
