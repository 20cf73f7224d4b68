<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="he" sourcelanguage="en">
<context>
    <name>OrvixUpgrade</name>
    <message>
        <source>Cast your screen to a display panel</source>
        <translation>שדרו את המסך שלכם ללוח תצוגה</translation>
    </message>
</context>
</TS>
