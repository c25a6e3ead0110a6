/* Which calls fail or wait, as the environment says (see faults.c). May be asked from any thread,
 * and by malloc. */
#pragma once

/* What tells calls of one function apart: a text, or a number where there is no text. */
struct Detail {
  const char *text;
  long number;
};

/* The number that OV_FAULTS gives for this call, or 0, after the pause that OV_DELAYS gives. */
long Fault(const char *name, struct Detail detail);

void SleepMilliseconds(long milliseconds);
