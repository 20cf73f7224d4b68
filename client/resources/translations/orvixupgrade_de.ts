<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>OrvixUpgrade</name>
    <message>
        <source>Cast your screen to a display panel</source>
        <translation>Bildschirm auf ein Display-Panel übertragen</translation>
    </message>
</context>
</TS>
