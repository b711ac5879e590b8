// What a host does with nothing but the public header. Compiled once for each language version.
#pragma once

struct PublicHeaderAnswers
{
    long hrCreate;
    bool bSameIdentifier;
    unsigned long status;
};

PublicHeaderAnswers UsePublicHeader17();
PublicHeaderAnswers UsePublicHeader20();
