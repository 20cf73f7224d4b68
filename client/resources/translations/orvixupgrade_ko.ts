<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ko" sourcelanguage="en">
<context>
    <name>OrvixUpgrade</name>
    <message>
        <source>Cast your screen to a display panel</source>
        <translation>화면을 디스플레이 패널로 전송</translation>
    </message>
</context>
</TS>
