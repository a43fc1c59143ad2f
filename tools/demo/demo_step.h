// The demo's step printer, shared by main.cpp and the sessions. Main thread only.
#ifndef ORBPERIX_TOOLS_DEMO_DEMO_STEP_H_
#define ORBPERIX_TOOLS_DEMO_DEMO_STEP_H_

// Prints one readable line for a step and its result, then the log lines written since.
void DemoStep(const char* what, int result);
// Prints an indented detail line under the current step.
void DemoDetail(const char* format, ...);

#endif  // ORBPERIX_TOOLS_DEMO_DEMO_STEP_H_
