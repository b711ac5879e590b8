// What a host does with nothing but the public header. Compiled once for each compiler and language version.
#pragma once

typedef struct PublicHeaderAnswers
{
    long hrCreate;
    int bSameIdentifier;
    unsigned long status;
    long hrPostRequest;  // both without a URL
    long hrPostUrl;
    long hrResponse;
    unsigned long references;  // after Release
} PublicHeaderAnswers;
