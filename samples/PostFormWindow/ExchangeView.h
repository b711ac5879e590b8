// What the controls show of an exchange.
#pragma once

#include <windows.h>

#include "kvHttp/Client.h"

void ShowNothingSent(HWND hWnd);
void ShowCannotStart(HWND hWnd, kvHttp::Outcome outcome);
void ShowStarted(HWND hWnd);

// The status, the time, and the bytes in the target file, if there is one.
void ShowExchange(HWND hWnd, const kvHttp::Progress& progress, bool bFile);

// The answer, if it is there.
void ShowEnded(HWND hWnd, const kvHttp::Answer& answer, bool bFile);

void ShowStopping(HWND hWnd);
void ShowStopped(HWND hWnd, const kvHttp::Progress& progress);
