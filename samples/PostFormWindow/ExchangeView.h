// What the controls show of an exchange.
#pragma once

#include <windows.h>

#include "Exchange.h"

void ShowNothingSent(HWND hWnd);
void ShowCannotStart(HWND hWnd, HRESULT hr);
void ShowStarted(HWND hWnd);

// The status, the time, and the bytes in the target file.
void ShowExchange(HWND hWnd, const CExchange& exchange);

// The answer, if it is there.
void ShowEnded(HWND hWnd, CExchange& exchange);

void ShowStopping(HWND hWnd);
void ShowStopped(HWND hWnd, const CExchange& exchange);
